#include "room/CalibrationNoise.h"

#include <atomic>
#include <chrono>
#include <cmath>

namespace
{

// The counter of the whole process; all ones means no tone has started yet.
constexpr uint32_t kNoSeedYet = 0xFFFFFFFFu;
std::atomic<uint32_t> g_seedCounter{kNoSeedYet};

constexpr double kButterworthQ = 0.7071067811865476;

// Five stages of a stochastic Voss-McCartney generator: a stage is redrawn
// when a uniform number falls at or below its threshold, the first such stage
// only. Slow stages carry the low octaves, so the sum falls at about 3 dB per
// octave over the band the filters leave.
constexpr double kThresholds[CCalibrationNoise::STAGE_COUNT] = {0.00198, 0.01478, 0.06378, 0.23378,
                                                                0.91578};
constexpr double kAmplitudes[CCalibrationNoise::STAGE_COUNT] = {3.8024, 2.9694, 2.597, 3.087,
                                                                3.4006};

// The sum of the stages times this has the RMS of a full-scale sine.
const double kUnitScale = std::pow(10.0, -0.76667);
// What the band filters take from that noise, given back so that the filtered
// noise reads at the asked level: the subwoofer's band is another share of it.
constexpr double kSubwooferBandDb = 7.0258;
constexpr double kSpeakerBandDb = 7.9586;

uint32_t ClockMilliseconds()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint32_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

uint32_t CCalibrationNoise::NextSeed()
{
    uint32_t current = g_seedCounter.load();
    uint32_t next;
    do
        next = current == kNoSeedYet ? ClockMilliseconds() : current + 1;
    while (!g_seedCounter.compare_exchange_weak(current, next));
    return next;
}

void CCalibrationNoise::ResetSeedCounter()
{
    g_seedCounter.store(kNoSeedYet);
}

CCalibrationNoise::CCalibrationNoise(double sampleRate, bool subwoofer, double levelDb)
    : seed(NextSeed()), scale(kUnitScale)
{
    const double bandDb = levelDb + (subwoofer ? kSubwooferBandDb : kSpeakerBandDb);
    if (bandDb != 0.0)
        scale = std::pow(10.0, bandDb / 20.0) * kUnitScale;
    lowPass.Design(IIR_LOWPASS_48, sampleRate, subwoofer ? 150.0 : 2000.0, 0.0, kButterworthQ, true,
                   QVString());
    highPass.Design(IIR_HIGHPASS_48, sampleRate, subwoofer ? 25.0 : 500.0, 0.0, kButterworthQ, true,
                    QVString());
}

double CCalibrationNoise::NextUniform() noexcept
{
    // The classic linear congruential step, whose bits 16 to 30 are its best.
    seed = seed * 214013u + 2531011u;
    const uint32_t high = (seed >> 16) & 0x7FFFu;
    seed = seed * 214013u + 2531011u;
    const uint32_t low = (seed >> 16) & 0x7FFFu;
    return static_cast<double>((high << 15) | low) / 1073741823.0;
}

double CCalibrationNoise::NextUnfiltered() noexcept
{
    const double u = NextUniform();
    for (int32_t k = 0; k < STAGE_COUNT; ++k)
    {
        if (kThresholds[k] >= u)
        {
            stages[k] = 2.0 * (NextUniform() - 0.5) * kAmplitudes[k];
            break;
        }
    }
    double sum = 0.0;
    for (double stage : stages)
        sum += stage;
    return sum * scale;
}
