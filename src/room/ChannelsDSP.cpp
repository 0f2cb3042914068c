#include "room/ChannelsDSP.h"

#include <algorithm>
#include <cmath>

namespace
{

using Speaker = CChannelDSP;

// Speakers of each channel, in stream order, for the counts that are served.
// In 5.1 the rear pair of the stream is played by the surround speakers; in
// 7.1 the stream has its rear pair before its surround pair.
constexpr int32_t kMono[] = {0};
constexpr int32_t kStereo[] = {0, 1};
constexpr int32_t kQuad[] = {0, 1, 4, 5};
constexpr int32_t kFivePointOne[] = {0, 1, 2, 3, 4, 5};
constexpr int32_t kSevenPointOne[] = {0, 1, 2, 3, 6, 7, 4, 5};

// Bass of each speaker is taken as 105 dB, and the bass of n speakers adds as
// power: together they peak at sqrt(n) times one of them.
double BassSumFactor(int32_t bassChannels)
{
    if (bassChannels <= 0)
        return 0.0;
    return std::pow(10.0, (10.0 * std::log10(std::pow(10.0, 10.5) * bassChannels) - 105.0) / 20.0);
}

}  // namespace

CChannelsDSP::CChannelsDSP(int32_t zone)
{
    for (int32_t speaker = 0; speaker < Speaker::SPEAKER_COUNT; ++speaker)
        channels.Add(new CChannelDSP(speaker, zone));
}

void CChannelsDSP::BuildActiveChannels()
{
    activeChannels.RemoveAll();
    const auto take = [this](const auto& speakers)
    {
        for (int32_t speaker : speakers)
            activeChannels.Add(channels[speaker]);
    };
    switch (format.channels)
    {
    case 1: take(kMono); break;
    case 2: take(kStereo); break;
    case 4: take(kQuad); break;
    case 6: take(kFivePointOne); break;
    case 0:
    case 3:
    case 5:
    case 7: break;
    default:
        // Channels above the eighth pass through untouched.
        take(kSevenPointOne);
        for (int32_t extra = 8; extra < format.channels; ++extra)
            activeChannels.Add(nullptr);
        break;
    }
}

bool CChannelsDSP::SetAudioFormat(const CAudioFormat& newFormat)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (&newFormat != &format)
        format = newFormat;
    BuildActiveChannels();
    // No channels at all is no stream to serve either.
    valid = format.channels > 0 && activeChannels.GetCount() == format.channels;
    if (!valid)
        return false;

    // The records only ever widen: a speaker moved nearer leaves the farthest
    // distance where it was. All delays stay correct relative to each other;
    // only the common delay is longer than it needs to be.
    for (CChannelDSP* speaker : activeChannels)
    {
        if (speaker == nullptr)
            continue;
        const auto set = Speaker::GetChannelSet(speaker->channel);
        if (set != Speaker::CHANNELSET_NONE)
            Distances(set);
        Distances(Speaker::CHANNELSET_ALL);
        if (!speaker->HasDistance())
            continue;
        for (auto key : {set, Speaker::CHANNELSET_ALL})
        {
            if (key == Speaker::CHANNELSET_NONE)
                continue;
            CSpeakerDistances& record = Distances(key);
            record.minimum = std::min(record.minimum, speaker->distanceFeet);
            record.maximum = std::max(record.maximum, speaker->distanceFeet);
        }
    }

    // The first soloed or tone-playing speaker is the only one heard.
    CChannelDSP* heard = nullptr;
    for (CChannelDSP* speaker : activeChannels)
    {
        if (speaker != nullptr && (speaker->solo || speaker->tone))
        {
            heard = speaker;
            break;
        }
    }
    const bool toneActive = heard != nullptr && heard->tone;
    for (CChannelDSP* speaker : activeChannels)
    {
        if (speaker == nullptr)
            continue;
        speaker->silenced = (heard != nullptr && speaker != heard) || speaker->mute;
    }

    const double maxDistanceAll = Distances(Speaker::CHANNELSET_ALL).maximum;
    bassChannels = 0;
    for (int32_t i = 0; i < activeChannels.GetCount(); ++i)
    {
        CChannelDSP* speaker = activeChannels[i];
        if (speaker == nullptr)
            continue;
        // Center and subwoofer look up the set of no pair, whose record
        // never changes: their own-set maximum is 0.
        const double maxDistanceOwnSet =
            Distances(Speaker::GetChannelSet(speaker->channel)).maximum;
        speaker->Configure(format, i, maxDistanceAll, maxDistanceOwnSet);
        if (speaker->bassToSubwoofer)
            ++bassChannels;
    }

    UpdateCommonGain(toneActive);
    return true;
}

// The common gain puts the loudest path at exactly unity, in both
// directions: a uniform trim of all speakers changes nothing, and a boost of
// one lowers the rest. It is all the headroom protection there is.
void CChannelsDSP::UpdateCommonGain(bool toneActive)
{
    double mainPeak = 0.0;
    double subPeak = 0.0;
    for (int32_t i = 0; i < activeChannels.GetCount(); ++i)
    {
        const CChannelDSP* speaker = activeChannels[i];
        if (speaker == nullptr)
            continue;
        const ChannelRecord& record = format.channelTable[i];
        double g = speaker->gain;
        if (record.present && record.extraGainDb != 0.0f)
            g = g * std::pow(10.0, -static_cast<double>(record.extraGainDb) / 20.0);
        if (speaker->IsSubwoofer())
            subPeak = std::max(subPeak, g);
        else if (record.present)
            mainPeak = std::max(mainPeak, g);
    }

    const int32_t subwooferIndex = format.ChannelIndexOf(CAudioFormat::Subwoofer);
    const ChannelRecord* subwooferRecord =
        subwooferIndex >= 0 ? &format.channelTable[subwooferIndex] : nullptr;
    bassGain = 1.0;
    // The subwoofer channel is later played louder by its gain (10 dB in the
    // default layouts); the bass sent to it is lowered by as much.
    if (bassChannels > 0 && subwooferRecord != nullptr)
        bassGain = std::pow(10.0, -static_cast<double>(subwooferRecord->gainDb) / 20.0);
    double w = BassSumFactor(bassChannels) * bassGain;
    if (subwooferRecord != nullptr && subwooferRecord->present)
        w = w + 1.0;  // the subwoofer's own signal
    subPeak = subPeak * w;

    masterGain = 1.0;
    // While a tone plays its level has to be exact.
    if (toneActive)
        return;
    const double m = std::max(mainPeak, subPeak);
    if (m > 1.0 || (m < 1.0 && m > 0.0))
        masterGain = 1.0 / m;
}

bool CChannelsDSP::ProcessBlock(double* samples, int32_t frames, double toneGain)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (!valid)
        return false;
    double* bass = nullptr;
    if (bassChannels >= 1 && frames > 0)
    {
        // Grows once to the host's block size; a shorter block only shortens it.
        bassBuffer.resize(static_cast<size_t>(frames));
        std::fill(bassBuffer.begin(), bassBuffer.end(), 0.0);
        bass = bassBuffer.data();
    }
    // Two passes: every speaker that sends bass has run before the subwoofer
    // reads the sum.
    for (int32_t pass = 0; pass < 2; ++pass)
    {
        for (int32_t i = 0; i < activeChannels.GetCount(); ++i)
        {
            CChannelDSP* speaker = activeChannels[i];
            if (speaker == nullptr || speaker->IsSubwoofer() != (pass == 1))
                continue;
            speaker->ProcessBlock(samples + i, frames, format, masterGain, bass, bassChannels,
                                  bassGain, toneGain);
        }
    }
    return true;
}
