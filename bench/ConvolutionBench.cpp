// Convolution at 48 kHz stereo, one block of 4096 frames (the hop of the
// 8192-point window) per iteration, with impulses of 8,192, 65,536 and
// 262,144 taps that differ between the channels; and the memory that a load
// of the longest one takes at its peak and keeps afterwards.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sndfile.h>
#include <unistd.h>

#include "PluginBlocks.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "convolution/ConvolutionPlugin.h"
#include "frame/IQVTools.h"
#include "host/BuiltinTools.h"

namespace
{
constexpr int32_t kSampleRate = 48000;
constexpr int32_t kChannels = 2;
constexpr int32_t kBlockFrames = 4096;

// The run's impulses and settings, in a folder that goes when the run ends.
class BenchFolder
{
public:
    BenchFolder()
        : path(std::filesystem::temp_directory_path() /
               ("qvdsp-bench-" + std::to_string(::getpid())))
    {
        std::filesystem::create_directories(path);
    }
    ~BenchFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }
    const std::filesystem::path path;
};

const std::filesystem::path& Folder()
{
    static const BenchFolder folder;
    return folder.path;
}

// A decaying noise impulse per channel, written once per length.
std::string ImpulseFile(int32_t taps)
{
    const std::filesystem::path name = Folder() / ("ir" + std::to_string(taps) + ".wav");
    if (std::filesystem::exists(name))
        return name.string();
    std::mt19937 generator(taps);
    std::uniform_real_distribution<double> value(-0.5, 0.5);
    std::vector<double> samples(static_cast<size_t>(taps) * kChannels);
    for (int32_t i = 0; i < taps; ++i)
        for (int32_t c = 0; c < kChannels; ++c)
            samples[static_cast<size_t>(i) * kChannels + c] =
                value(generator) * std::exp(-6.0 * i / taps);
    SF_INFO info{};
    info.channels = kChannels;
    info.samplerate = kSampleRate;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(name.c_str(), SFM_WRITE, &info);
    sf_writef_double(file, samples.data(), taps);
    sf_close(file);
    return name.string();
}

// The built-in tools, reading a settings file of the benchmark's own.
void UseBuiltinTools()
{
    const std::filesystem::path settings = Folder() / "settings.json";
    setenv("QVDSP_SETTINGS", settings.c_str(), 1);
    SetQVTools(&GetBuiltinTools());
}

void LoadFilter(CConvolutionDSPPlugin& plugin, int32_t taps)
{
    CAudioConvolution& engine = plugin.GetConvolution();
    engine.volumeMode = 1;  // the noise measurement is a load's cost, not a block's
    engine.smallFilters = false;
    engine.filterName = QVString::FromUTF8(ImpulseFile(taps));
    plugin.SetFormat(CAudioFormat(64, kSampleRate, kChannels));
    plugin.Flush();
}

void BM_ConvolutionStereo48k(benchmark::State& state)
{
    UseBuiltinTools();
    const auto taps = static_cast<int32_t>(state.range(0));
    CConvolutionDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    LoadFilter(plugin, taps);
    if (!plugin.GetConvolution().IsValid())
    {
        state.SkipWithError("the impulse did not load");
        return;
    }
    const double framesDone = RunPluginBlocks(state, plugin, NoiseBlock(kBlockFrames, kChannels),
                                              kBlockFrames, kSampleRate);
    state.counters["ns/sample"] = benchmark::Counter(
        framesDone * kChannels, benchmark::Counter::kIsRate | benchmark::Counter::kInvert,
        benchmark::Counter::OneK::kIs1000);
}

int64_t PeakResidentKilobytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::strtoll(line.c_str() + 6, nullptr, 10);
    return 0;
}

int64_t ResidentKilobytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::strtoll(line.c_str() + 6, nullptr, 10);
    return 0;
}

// The peak counts what a load holds at once: the converted file, its
// samples and the partition spectra; what stays is spectra and histories,
// counted as resident memory, since large spectra are mapped apart from the
// heap.
void BM_ConvolutionLoadMemory262144Stereo(benchmark::State& state)
{
    UseBuiltinTools();
    ImpulseFile(262144);
    for (auto _ : state)
    {
        malloc_trim(0);
        std::ofstream("/proc/self/clear_refs") << "5";  // restarts the peak at the present size
        const int64_t before = ResidentKilobytes();
        auto plugin = std::make_unique<CConvolutionDSPPlugin>(nullptr, DSP_ZONE_GLOBAL);
        LoadFilter(*plugin, 262144);
        state.counters["peak MB"] = (PeakResidentKilobytes() - before) / 1024.0;
        state.counters["kept MB"] = (ResidentKilobytes() - before) / 1024.0;
        benchmark::DoNotOptimize(plugin.get());
    }
}

}  // namespace

BENCHMARK(BM_ConvolutionStereo48k)->Arg(8192)->Arg(65536)->Arg(262144);
BENCHMARK(BM_ConvolutionLoadMemory262144Stereo)->Iterations(1)->Unit(benchmark::kMillisecond);

namespace
{

// What a player pays after each seek: the blocks right after a flush, while
// the history fills and the first window's share through each later
// partition is added one block at a time, 64 blocks of the longest impulse.
void BM_ConvolutionStereo48kAfterFlush(benchmark::State& state)
{
    UseBuiltinTools();
    constexpr int32_t kBlocksAfterFlush = 64;
    CConvolutionDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    LoadFilter(plugin, static_cast<int32_t>(state.range(0)));
    if (!plugin.GetConvolution().IsValid())
    {
        state.SkipWithError("the impulse did not load");
        return;
    }
    const std::vector<double> source = NoiseBlock(kBlockFrames, kChannels);
    std::vector<double> block = source;
    DiscardingSink sink;
    for (auto _ : state)
    {
        state.PauseTiming();
        plugin.Flush();
        state.ResumeTiming();
        for (int32_t i = 0; i < kBlocksAfterFlush; ++i)
        {
            block = source;
            plugin.Process(block.data(), kBlockFrames, &sink);
        }
        benchmark::ClobberMemory();
    }
    state.counters["per block"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kBlocksAfterFlush,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK(BM_ConvolutionStereo48kAfterFlush)->Arg(262144)->Unit(benchmark::kMillisecond);
