// Reading the parametric EQ text that room-correction tools and headphone
// measurement databases write ("Preamp: -6.2 dB", "Filter 1: ON PK Fc 1000 Hz
// Gain -3 dB Q 1.41") into filters of the Parametric Equalizer's list.
#pragma once

#include "parametric/ParametricFilter.h"

#include <cstdint>
#include <string>
#include <vector>

// One filter as the list will hold it, before it is made.
struct ImportedFilter
{
    int32_t type = 0;
    bool enabled = true;
    double frequency = 0;
    double gain = 0;
    double q = 0.7071;
    double slope = 12;  // dB/octave of the low- and high-pass kinds
    int32_t line = 0;   // where the text gave it, from 1
};

struct ApoLineProblem
{
    int32_t line = 0;  // from 1
    std::string text;
};

struct ApoImport
{
    std::vector<ImportedFilter> filters;
    std::vector<ApoLineProblem> unmapped;
};

// Reads the whole text. Lines without ":" are skipped; lines with one that
// can't be mapped are reported with their number and leave no filter.
ApoImport ParseApoText(const std::string& text);

// Shelf slope S of a shelf with this Q at this gain: the inverse of
// ShelfQFromSlope (parametric/EqualizingFilters.h).
double ShelfSlopeFromQ(double q, double gainDb);

// The channels that imported filters act on: 2 to 9, every speaker channel.
ChannelList ImportedChannels();

// The filter of the list's kind, with its own keys set through its serializer.
std::unique_ptr<CParametricFilter> MakeImportedFilter(const ImportedFilter& imported);
