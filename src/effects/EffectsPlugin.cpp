#include "effects/EffectsPlugin.h"

#include "effects/EffectsDisplayDlg.h"
#include "frame/PanelModel.h"

CEffectsDSPPlugin::CEffectsDSPPlugin(IQVDSPHost* pluginHost, int32_t pluginZone)
    : QVDSPBase(pluginHost, pluginZone), engine(std::make_unique<CEffectsEngine>(this))
{
    engine->settings.Load();
    // Ready for the default format, should a host send blocks before a format.
    engine->format = format;
    engine->Configure();
    valid = IsSupportedChannelCount(format.channels);
}

CEffectsDSPPlugin::~CEffectsDSPPlugin()
{
    ClosePanelModel(panel);
    // The engine goes next, and its settings save once more as they go.
    engine.reset();
}

bool CEffectsDSPPlugin::IsSupportedChannelCount(int32_t channels)
{
    return channels == 1 || channels == 2 || channels == 4 || channels == 6 || channels == 8;
}

int32_t CEffectsDSPPlugin::Flush()
{
    engine->Flush();
    return 0;
}

int32_t CEffectsDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    StoreFormat(format, newFormat);
    engine->format = format;
    engine->Configure();
    valid = IsSupportedChannelCount(format.channels);
    return valid ? 0 : -1;
}

int64_t CEffectsDSPPlugin::Command(int32_t kind, void*, uint64_t*)
{
    switch (kind)
    {
    case DSPCMD_OPEN_PANEL: return OpenPanelModel(panel, *this);
    case DSPCMD_CLOSE_PANEL: return ClosePanelModel(panel);
    case DSPCMD_QUERY_FLAG: return 1;
    default: return -1;
    }
}

int32_t CEffectsDSPPlugin::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    if (valid && frames > 0)
        engine->Process(samples, frames);
    if (sink != nullptr)
        sink->Output(samples, frames);
    return 0;
}

QVString CEffectsDSPPlugin::GetName()
{
    return QVString(u"Effects");
}
