#include "frame/PluginFactory.h"

#include "convolution/ConvolutionPlugin.h"
#include "effects/AnalyzerPlugin.h"
#include "effects/EffectsPlugin.h"
#include "effects/EqualizerPlugin.h"
#include "effects/HeadphonesPlugin.h"
#include "effects/TempoPitchPlugin.h"
#include "effects/TubeAmplifier.h"
#include "frame/SiblingModules.h"
#include "output/AdaptiveVolume.h"
#include "output/OutputFormatPlugin.h"
#include "output/VolumeLeveling.h"
#include "parametric/ParametricEqualizerPlugin.h"
#include "room/ChannelsDSPPlugin.h"

// Indices whose plug-in is not part of this build yet answer null, like an
// unknown index.
IQVDSP* CreateDSPPlugin(int32_t index, IQVDSPHost* host, int32_t zone, bool unlisted)
{
    EnsureToolsReady(QVString(), true);
    switch (index)
    {
    case DSPPLUGIN_EQUALIZER: return new CEqualizerDSPPlugin(host, zone);
    case DSPPLUGIN_EFFECTS: return new CEffectsDSPPlugin(host, zone);
    case DSPPLUGIN_VOLUME_LEVELING: return new CVolumeLevelingDSPPlugin(host, zone);
    case DSPPLUGIN_TEMPO_PITCH: return new CTempoPitchDSPPlugin(host, zone);
    case DSPPLUGIN_HEADPHONES: return new CHeadphonesDSPPlugin(host, zone);
    case DSPPLUGIN_ROOM_CORRECTION: return new CChannelsDSPPlugin(host, zone);
    case DSPPLUGIN_OUTPUT_FORMAT: return new COutputFormatDSPPlugin(host, zone);
    case DSPPLUGIN_ANALYZER: return new CAnalyzerDSPPlugin(host, zone);
    case DSPPLUGIN_PARAMETRIC_EQUALIZER: return new CParametricEqualizerDSPPlugin(host, zone, 0);
    case DSPPLUGIN_CONVOLUTION: return new CConvolutionDSPPlugin(host, zone);
    case DSPPLUGIN_PARAMETRIC_EQUALIZER_2: return new CParametricEqualizerDSPPlugin(host, zone, 1);
    case DSPPLUGIN_ADAPTIVE_VOLUME: return new CAdaptiveVolumeDSPPlugin(host, zone);
    case DSPPLUGIN_TUBE_AMPLIFIER:
        // Kept out of the list on purpose: the host never offers it.
        return unlisted ? new CTubeAmplifierDSPPlugin(host, zone) : nullptr;
    default: return nullptr;
    }
}

extern "C" QVDSP_EXPORT IQVDSP* GetDSPPlugin(int32_t index, IQVDSPHost* host, int32_t zone)
{
    return CreateDSPPlugin(index, host, zone, false);
}
