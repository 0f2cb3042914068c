#include "room/ChannelsDSPPlugin.h"

#include "frame/PanelModel.h"
#include "room/ChannelsDlg.h"

CChannelsDSPPlugin::CChannelsDSPPlugin(IQVDSPHost* pluginHost, int32_t pluginZone)
    : QVDSPBase(pluginHost, pluginZone), channels(pluginZone)
{
}

CChannelsDSPPlugin::~CChannelsDSPPlugin()
{
    ClosePanelModel(panel);
}

int32_t CChannelsDSPPlugin::Flush()
{
    // A new preparation, nothing cleared: the delay lines and filters keep
    // their contents, so the stream goes on without a gap.
    channels.SetAudioFormat(format);
    return 0;
}

int32_t CChannelsDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    StoreFormat(format, newFormat);
    return channels.SetAudioFormat(format) ? 0 : -1;
}

int64_t CChannelsDSPPlugin::Command(int32_t kind, void*, uint64_t*)
{
    switch (kind)
    {
    case DSPCMD_OPEN_PANEL: return OpenPanelModel(panel, *this);
    case DSPCMD_CLOSE_PANEL: return ClosePanelModel(panel);
    case DSPCMD_QUERY_FLAG: return 1;
    default: return -1;
    }
}

int32_t CChannelsDSPPlugin::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    const double toneGain = sink != nullptr ? sink->GetTestLevel() : 1.0;
    channels.ProcessBlock(samples, frames, toneGain);
    if (sink != nullptr)
        sink->Output(samples, frames);
    return 0;
}

QVString CChannelsDSPPlugin::GetName()
{
    return QVString(u"Room Correction");
}
