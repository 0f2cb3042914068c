// The magnitude response of a plug-in, measured the honest way: a unit impulse
// on one channel at a time through the plug-in itself, its output transformed.
// Used by `qvdsp peq response` to show what a filter list does.
#pragma once

#include "qvdsp/IQVDSP.h"

#include <cstdint>
#include <string>
#include <vector>

struct ChannelResponse
{
    int32_t channelId = 0;
    std::string name;              // short channel name, e.g. "L"
    std::vector<double> decibels;  // one per frequency of the response
};

struct MagnitudeResponse
{
    int32_t sampleRate = 0;
    std::vector<double> frequencies;        // log-spaced, Hz
    std::vector<ChannelResponse> channels;  // only the channels the plug-in changes
};

// `points` log-spaced frequencies from 20 Hz up to 20 kHz or just below the
// Nyquist frequency. A channel counts as touched when an impulse on it comes
// out anywhere other than unchanged on itself.
MagnitudeResponse MeasureResponse(IQVDSP& plugin, int32_t sampleRate, int32_t channelCount,
                                  int32_t points);

// A table: a header line, then one line per frequency with dB per channel.
std::string ResponseTable(const MagnitudeResponse& response);

// A self-contained SVG document: log frequency axis in Hz, dB axis, one
// coloured trace per channel and a legend.
std::string ResponseSvg(const MagnitudeResponse& response);
