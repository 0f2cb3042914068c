#include "output/OutputFormatPlugin.h"

COutputFormatDSPPlugin::COutputFormatDSPPlugin(IQVDSPHost* hostObject, int32_t zoneNumber)
    : QVDSPBase(hostObject, zoneNumber), settings(zoneNumber)
{
}

COutputFormatDSPPlugin::~COutputFormatDSPPlugin()
{
    ClosePanelModel(panel);
}

QVString COutputFormatDSPPlugin::GetName()
{
    return QVString(u"Output Format");
}

int32_t COutputFormatDSPPlugin::Flush()
{
    return QVDSPBase::Flush();
}

int32_t COutputFormatDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    StoreFormat(format, newFormat);
    return 0;
}

int32_t COutputFormatDSPPlugin::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    return QVDSPBase::ProcessBlock(samples, frames, sink);
}

int64_t COutputFormatDSPPlugin::Command(int32_t kind, void* arg, uint64_t* out)
{
    switch (kind)
    {
    case DSPCMD_OPEN_PANEL: return OpenPanelModel(panel, this);
    case DSPCMD_CLOSE_PANEL: return ClosePanelModel(panel);
    case DSPCMD_RELOAD:
        // The panel reloads the record as part of showing it.
        if (panel)
            panel->Refresh();
        else
            settings.Load(-10000);
        return 0;
    default: return StatelessCommand(kind);
    }
}
