// The index table of the module's plug-ins. The index order is a contract: it is
// stored in the registration of every plug-in.
#pragma once

#include <cstdint>

#include "qvdsp/IQVDSP.h"

enum DSPPluginIndex : int32_t
{
    DSPPLUGIN_EQUALIZER = 0,
    DSPPLUGIN_EFFECTS = 1,
    DSPPLUGIN_VOLUME_LEVELING = 2,
    DSPPLUGIN_OUTPUT_FORMAT = 3,
    DSPPLUGIN_TEMPO_PITCH = 4,
    DSPPLUGIN_HEADPHONES = 5,
    DSPPLUGIN_ROOM_CORRECTION = 6,
    DSPPLUGIN_ANALYZER = 7,
    DSPPLUGIN_PARAMETRIC_EQUALIZER = 8,
    DSPPLUGIN_CONVOLUTION = 9,
    DSPPLUGIN_PARAMETRIC_EQUALIZER_2 = 10,
    DSPPLUGIN_ADAPTIVE_VOLUME = 11,
    DSPPLUGIN_TUBE_AMPLIFIER = 12,
    DSPPLUGIN_COUNT = 13,
};

// Builds the plug-in of `index`, or null for an index without one. Index 12 is
// kept unlisted on purpose: only `unlisted` true builds it. The caller owns the
// result.
IQVDSP* CreateDSPPlugin(int32_t index, IQVDSPHost* host, int32_t zone, bool unlisted);
