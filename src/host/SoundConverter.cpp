#include "host/SoundConverter.h"

#include <sndfile.h>
#include <soxr.h>

#include <cmath>
#include <cstdio>
#include <new>
#include <vector>

namespace
{

// The converter holds a whole file, and its resampled copy, in memory. A file
// is refused when either would pass 2^28 samples (2 GiB): no impulse comes
// near that, and a mistaken choice (an hour of music, a header that claims a
// rate of 1 Hz) fails at once instead of taking the machine's memory.
constexpr double kMostSamples = 268435456.0;

int SubtypeForBits(int32_t bits)
{
    switch (bits)
    {
    case 64: return SF_FORMAT_DOUBLE;
    case 32: return SF_FORMAT_FLOAT;
    case 24: return SF_FORMAT_PCM_24;
    case 8: return SF_FORMAT_PCM_U8;
    default: return SF_FORMAT_PCM_16;
    }
}

bool ReadWhole(const QVString& source, SF_INFO& info, std::vector<double>& samples)
{
    info = SF_INFO{};
    SNDFILE* file = sf_open(source.ToUTF8().c_str(), SFM_READ, &info);
    if (file == nullptr)
        return false;
    bool ok = info.channels > 0 && info.samplerate > 0 && info.frames > 0 &&
              static_cast<double>(info.frames) * info.channels <= kMostSamples;
    if (ok)
    {
        samples.assign(static_cast<size_t>(info.frames) * info.channels, 0.0);
        ok = sf_readf_double(file, samples.data(), info.frames) == info.frames;
    }
    sf_close(file);
    return ok;
}

bool Resample(std::vector<double>& samples, int channels, double fromRate, double toRate)
{
    const size_t inFrames = samples.size() / channels;
    const double wanted = std::ceil(static_cast<double>(inFrames) * toRate / fromRate);
    if (!(wanted * channels <= kMostSamples))
        return false;
    const auto outFrames = static_cast<size_t>(wanted);
    std::vector<double> out(outFrames * channels, 0.0);
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    size_t done = 0;
    const soxr_error_t error =
        soxr_oneshot(fromRate, toRate, channels, samples.data(), inFrames, nullptr, out.data(),
                     outFrames, &done, &io, &quality, nullptr);
    if (error != nullptr)
        return false;
    out.resize(done * channels);
    samples.swap(out);
    return !samples.empty();
}

bool WriteWhole(const QVString& target, int channels, int rate, int subtype,
                const std::vector<double>& samples)
{
    SF_INFO info{};
    info.channels = channels;
    info.samplerate = rate;
    info.format = SF_FORMAT_WAV | subtype;
    const std::string path = target.ToUTF8();
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr)
        return false;
    const sf_count_t frames = static_cast<sf_count_t>(samples.size() / channels);
    const bool ok = sf_writef_double(file, samples.data(), frames) == frames;
    const bool closed = sf_close(file) == 0;
    if (!(ok && closed))
        std::remove(path.c_str());  // never leave half a file behind
    return ok && closed;
}

}  // namespace

int32_t CBuiltinSoundConverter::Convert(const QVString& source, const QVString& target)
{
    outputName = QVString();
    inputRate = 0;
    try
    {
        SF_INFO info;
        std::vector<double> samples;
        if (!ReadWhole(source, info, samples))
            return 0;
        inputRate = info.samplerate;
        const int rate = targetRate > 0 ? targetRate : info.samplerate;
        if (rate != info.samplerate && !Resample(samples, info.channels, info.samplerate, rate))
            return 0;
        if (!WriteWhole(target, info.channels, rate, SubtypeForBits(targetBits), samples))
            return 0;
    }
    catch (const std::bad_alloc&)
    {
        return 0;  // a conversion that does not fit fails like one that cannot be read
    }
    outputName = target;
    return 1;
}

QVString CBuiltinSoundConverter::GetProperty(const QVString& name)
{
    if (name == u"Output Filename")
        return outputName;
    if (name == u"Input Samplerate")
        return inputRate > 0 ? QVString::FromInt(inputRate) : QVString();
    return QVString();
}
