#include "effects/EqualizerPlugin.h"

#include "effects/EqualizerDlg.h"
#include "frame/PanelModel.h"

CEqualizerDSPPlugin::CEqualizerDSPPlugin(IQVDSPHost* pluginHost, int32_t pluginZone)
    : QVDSPBase(pluginHost, pluginZone), presets(this)
{
    presets.Load();
}

CEqualizerDSPPlugin::~CEqualizerDSPPlugin()
{
    ClosePanelModel(panel);
}

int32_t CEqualizerDSPPlugin::Flush()
{
    // Held history is a few milliseconds of ringing at most; it is kept.
    return 0;
}

int32_t CEqualizerDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    StoreFormat(format, newFormat);
    engine.sampleRate = static_cast<int32_t>(format.sampleRate);
    engine.ApplySetting(presets.settings);
    return 0;
}

int64_t CEqualizerDSPPlugin::Command(int32_t kind, void*, uint64_t*)
{
    switch (kind)
    {
    case DSPCMD_OPEN_PANEL: return OpenPanelModel(panel, *this);
    case DSPCMD_CLOSE_PANEL: return ClosePanelModel(panel);
    case DSPCMD_RELOAD:
        presets.Load();
        if (panel)
            panel->Refresh();
        return -1;
    case DSPCMD_QUERY_FLAG: return 1;
    default: return -1;
    }
}

int32_t CEqualizerDSPPlugin::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    engine.Process(samples, frames, format.channels, static_cast<int32_t>(format.sampleRate));
    if (sink != nullptr)
        sink->Output(samples, frames);
    return 0;
}

QVString CEqualizerDSPPlugin::GetName()
{
    return QVString(u"Equalizer");
}
