// The engine of Room Correction: the eight speakers, which of them serve the
// channels of a stream, the figures that depend on more than one speaker
// (farthest distance, solo and tone, bass sent to the subwoofer, a common
// gain), and the order in which they run so that the subwoofer receives the
// bass of the others within the same block.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "core/QVArray.h"
#include "core/QVMap.h"
#include "qvdsp/AudioFormat.h"
#include "room/ChannelDSP.h"

class CChannelsDSP
{
public:
    struct CSpeakerDistances
    {
        double minimum = 3.4028234663852886e+38;  // the largest single-precision value
        double maximum = 0.0;
    };
    using DistanceMap = QVMap<CChannelDSP::EChannelSets, CChannelDSP::EChannelSets,
                              CSpeakerDistances, const CSpeakerDistances&>;

    // Makes the eight speakers, each of which reads its settings of the zone.
    explicit CChannelsDSP(int32_t zone);

    // The whole preparation for a format, under the lock; answers whether the
    // format's channel count can be served.
    bool SetAudioFormat(const CAudioFormat& newFormat);
    // Runs a block in place under the lock; false, with the samples left as
    // they are, when the format cannot be served.
    bool ProcessBlock(double* samples, int32_t frames, double toneGain);

    // The record of a set, made at its first look-up.
    CSpeakerDistances& Distances(CChannelDSP::EChannelSets set) { return distances[set]; }
    CChannelDSP& Speaker(int32_t speaker) { return *channels[speaker]; }

    DistanceMap distances;
    // Guards everything of Room Correction; recursive, as the panel applies
    // and saves while it holds it.
    std::recursive_mutex lock;
    QVOwnedPtrArray<CChannelDSP> channels;
    QVPointerArray<CChannelDSP> activeChannels;
    CAudioFormat format;
    bool valid = false;
    // Kept between blocks, reallocated only to grow.
    std::vector<double> bassBuffer;
    double masterGain = 1.0;
    int32_t bassChannels = 0;
    double bassGain = 1.0;

private:
    void BuildActiveChannels();
    void UpdateCommonGain(bool toneActive);
};
