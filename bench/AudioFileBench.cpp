// Costs of the container readers: opening (the chunk walk), reading with the
// byte-order conversions, and the DTS scan a CD-audio WAV gets when opened.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "audiofile/AIFFInfo.h"
#include "audiofile/WAVInfo.h"

namespace
{

void PutU32(std::vector<uint8_t>& out, uint32_t value, bool bigEndian)
{
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<uint8_t>(value >> (bigEndian ? 24 - 8 * i : 8 * i)));
}

void PutU16(std::vector<uint8_t>& out, uint16_t value, bool bigEndian)
{
    out.push_back(static_cast<uint8_t>(bigEndian ? value >> 8 : value));
    out.push_back(static_cast<uint8_t>(bigEndian ? value : value >> 8));
}

std::vector<uint8_t> Noise(size_t bytes)
{
    std::vector<uint8_t> data(bytes);
    uint32_t state = 1;
    for (uint8_t& b : data)
    {
        state = state * 1664525u + 1013904223u;
        b = static_cast<uint8_t>(state >> 24);
    }
    return data;
}

// A WAV of the given format whose data is noise.
std::vector<uint8_t> Wave(uint16_t channels, uint32_t rate, uint16_t bits, size_t dataBytes)
{
    std::vector<uint8_t> file = {'R', 'I', 'F', 'F'};
    PutU32(file, static_cast<uint32_t>(36 + dataBytes), false);
    file.insert(file.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
    PutU32(file, 16, false);
    PutU16(file, bits == 64 ? 3 : 1, false);
    PutU16(file, channels, false);
    PutU32(file, rate, false);
    PutU32(file, rate * channels * bits / 8, false);
    PutU16(file, static_cast<uint16_t>(channels * bits / 8), false);
    PutU16(file, bits, false);
    file.insert(file.end(), {'d', 'a', 't', 'a'});
    PutU32(file, static_cast<uint32_t>(dataBytes), false);
    const std::vector<uint8_t> data = Noise(dataBytes);
    file.insert(file.end(), data.begin(), data.end());
    return file;
}

std::vector<uint8_t> Aiff24(uint32_t frames)
{
    const uint32_t dataBytes = frames * 2 * 3;
    std::vector<uint8_t> file = {'F', 'O', 'R', 'M'};
    PutU32(file, 4 + 26 + 16 + dataBytes, true);
    file.insert(file.end(), {'A', 'I', 'F', 'F', 'C', 'O', 'M', 'M'});
    PutU32(file, 18, true);
    PutU16(file, 2, true);
    PutU32(file, frames, true);
    PutU16(file, 24, true);
    file.insert(file.end(), {0x40, 0x0E, 0xBB, 0x80, 0, 0, 0, 0, 0, 0, 'S', 'S', 'N', 'D'});
    PutU32(file, 8 + dataBytes, true);
    PutU32(file, 0, true);
    PutU32(file, 0, true);
    const std::vector<uint8_t> data = Noise(dataBytes);
    file.insert(file.end(), data.begin(), data.end());
    return file;
}

// Opening a 16-bit stereo 44.1 kHz WAV: the walk and the DTS scan of up to
// 256 KiB of noise.
void OpenCdWave(benchmark::State& state)
{
    const std::vector<uint8_t> file = Wave(2, 44100, 16, 1 << 20);
    CWAVInfo reader;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(
            reader.OpenStream(std::make_unique<CMemoryStream>(file), true, true));
    }
    state.SetBytesProcessed(state.iterations() * 262144);
}
BENCHMARK(OpenCdWave)->Unit(benchmark::kMicrosecond);

// Reading a 64-bit float WAV, as Convolution reads impulses: plain copies.
void ReadDoubleWave(benchmark::State& state)
{
    const std::vector<uint8_t> file = Wave(2, 48000, 64, 48000 * 16);
    CWAVInfo reader;
    reader.OpenStream(std::make_unique<CMemoryStream>(file), true, true);
    std::vector<uint8_t> out(48000 * 16);
    for (auto _ : state)
        benchmark::DoNotOptimize(reader.Read(out.data(), 0, 48000, nullptr, false));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(out.size()));
}
BENCHMARK(ReadDoubleWave)->Unit(benchmark::kMicrosecond);

// Reading 24-bit big-endian AIFF: every sample has bytes swapped.
void ReadAiff24(benchmark::State& state)
{
    const std::vector<uint8_t> file = Aiff24(48000);
    CAIFFInfo reader;
    reader.OpenStream(std::make_unique<CMemoryStream>(file), true, true);
    std::vector<uint8_t> out(48000 * 6);
    for (auto _ : state)
        benchmark::DoNotOptimize(reader.Read(out.data(), 0, 48000, nullptr, false));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(out.size()));
}
BENCHMARK(ReadAiff24)->Unit(benchmark::kMicrosecond);

}  // namespace
