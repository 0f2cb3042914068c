#include "cli/host/FileProcessor.h"

#include "cli/host/BlockPipeline.h"
#include "cli/host/CliError.h"
#include "cli/host/LatencyAlignment.h"
#include "cli/host/PluginChain.h"
#include "cli/host/ReplacingFile.h"

#include <algorithm>
#include <csignal>
#include <exception>
#include <iostream>
#include <vector>

namespace
{

volatile std::sig_atomic_t interruptRequested = 0;

void RequestInterrupt(int)
{
    interruptRequested = 1;
}

// Ctrl-C or a termination request between two blocks ends the run like an
// error: the temporary file goes, OUTPUT stays as it was.
class InterruptGuard
{
public:
    InterruptGuard()
    {
        TerminatingSignalsHeld held;
        interruptRequested = 0;
        previousInterrupt = std::signal(SIGINT, RequestInterrupt);
        previousTerminate = std::signal(SIGTERM, RequestInterrupt);
    }
    ~InterruptGuard()
    {
        TerminatingSignalsHeld held;
        std::signal(SIGINT, previousInterrupt);
        std::signal(SIGTERM, previousTerminate);
    }
    bool Requested() const { return interruptRequested != 0; }

private:
    void (*previousInterrupt)(int);
    void (*previousTerminate)(int);
};

// The end of the chain: queues whatever arrives for the writing thread. An
// error cannot be thrown through the plug-ins' frames, so it is kept and
// raised after the block.
class FileSink final : public IQVDSPSink
{
public:
    explicit FileSink(WriteBehind& writer) : writer(writer) {}

    void Output(double* samples, int32_t frames) override
    {
        if (error || frames <= 0)
            return;
        try
        {
            writer.Write(samples, frames);
            framesOut += frames;
        }
        catch (...)
        {
            error = std::current_exception();
        }
    }

    void RaiseError() const
    {
        if (error)
            std::rethrow_exception(error);
    }
    int64_t FramesOut() const { return framesOut; }

private:
    WriteBehind& writer;
    std::exception_ptr error;
    int64_t framesOut = 0;
};

// Detaches the chain from a sink that is about to go, however the run ends.
class OutputScope
{
public:
    OutputScope(PluginChain& chain, IQVDSPSink* sink) : chain(chain) { chain.SetOutput(sink); }
    ~OutputScope() { chain.SetOutput(nullptr); }

private:
    PluginChain& chain;
};

void RefuseSameFile(const ProcessRequest& request)
{
    if (IsSameFile(request.input, request.output))
        throw CliError(CLI_EXIT_USAGE, "OUTPUT " + Quoted(request.output) +
                                           " is the same file as INPUT " + Quoted(request.input) +
                                           "; choose another name");
}

// Only plug-ins are bound to a format record's channels; a plain copy is not.
void CheckChannelCount(const ProcessRequest& request, const SoundFileLayout& layout,
                       const PluginChain& chain)
{
    if (layout.channels < 1 || (chain.Size() > 0 && layout.channels > CAudioFormat::MAX_CHANNELS))
        throw CliError(CLI_EXIT_FAILED, "cannot process " + Quoted(request.input) + ": it has " +
                                            std::to_string(layout.channels) +
                                            " channels, the plug-ins take 1 to " +
                                            std::to_string(CAudioFormat::MAX_CHANNELS));
}

void ReportReplaced(const ProcessRequest& request, int64_t replaced)
{
    if (replaced > 0)
        std::cerr << "qvdsp: " << Quoted(request.input) << " holds " << replaced
                  << (replaced == 1 ? " sample" : " samples")
                  << " that are not finite numbers; they were replaced by 0\n";
}

void ReportRefusals(const std::vector<std::string>& refused, const SoundFileLayout& layout)
{
    for (const std::string& name : refused)
        std::cerr << "qvdsp: " << name << " cannot run on " << layout.channels << " channels at "
                  << layout.sampleRate << " Hz; it passes the audio on unchanged\n";
}

// Chunks queued between the threads: enough to ride out an uneven disk, but
// never more than about 64 MiB, whatever --block says.
int32_t QueueDepth(int64_t chunkFrames, int32_t channels)
{
    constexpr double budgetBytes = 64.0 * 1024 * 1024;
    const double chunkBytes = static_cast<double>(chunkFrames) * channels * sizeof(double);
    return static_cast<int32_t>(std::clamp(budgetBytes / chunkBytes, 2.0, 4.0));
}

}  // namespace

ProcessSummary ProcessFile(const ProcessRequest& request, PluginChain& chain)
{
    RefuseSameFile(request);
    ContainerForPath(request.output);  // a usage error before any file is touched

    SoundFileReader reader(request.input);
    const SoundFileLayout& input = reader.Layout();
    CheckChannelCount(request, input, chain);
    std::string note;
    SoundFileLayout output = input;
    output.format = ChooseOutputFormat(request.output, request.format, input, &note);
    if (!note.empty())
        std::cerr << "qvdsp: " << note << '\n';

    AtomicSoundFileWriter writer(request.output, output, reader.Frames());
    // The writing thread takes the chain's output in pieces of its own size: how
    // the frames are cut does not change a byte of the file.
    const int64_t pieceFrames = ChunkFrames(request.blockFrames, output.channels);
    WriteBehind writeBehind([&writer](const double* samples, int64_t frames)
                            { writer.Write(samples, frames); },
                            pieceFrames, output.channels, QueueDepth(pieceFrames, output.channels));
    FileSink sink(writeBehind);
    OutputScope scope(chain, &sink);

    if (chain.Size() > 0)
    {
        CAudioFormat format;
        format.Set(64, static_cast<uint32_t>(input.sampleRate),
                   static_cast<uint16_t>(input.channels));
        ReportRefusals(chain.SetFormat(format), input);
    }

    ProgressLine progress(request.showProgress, reader.Frames(), input.sampleRate);
    InterruptGuard interrupt;
    ProcessSummary summary;
    summary.sampleRate = input.sampleRate;
    auto started = std::chrono::steady_clock::now();
    LatencyAlignment alignment(chain, sink, input.channels, input.sampleRate, request.blockFrames);
    if (!request.raw)
    {
        alignment.Begin(reader.Frames());
        sink.RaiseError();
    }
    // Decoding runs ahead of the chain on a thread of its own; the chain still
    // gets exactly the blocks it would get from reading the file itself.
    const int64_t chunkFrames = ChunkFrames(request.blockFrames, input.channels);
    ReadAhead readAhead(
        [&reader](double* samples, int64_t frames) { return reader.Read(samples, frames); },
        request.blockFrames, input.channels, QueueDepth(chunkFrames, input.channels), chunkFrames);
    while (FrameSpan block = readAhead.Next())
    {
        const int32_t frames = static_cast<int32_t>(block.frames);
        if (request.raw)
            chain.Push(block.samples, frames);
        else
            alignment.Push(block.samples, frames);
        sink.RaiseError();
        summary.framesIn += frames;
        progress.Update(summary.framesIn);
        if (interrupt.Requested())
            throw CliError(CLI_EXIT_FAILED,
                           "interrupted; " + Quoted(request.output) + " was not written");
    }
    if (!request.raw)
    {
        alignment.Finish();
        sink.RaiseError();
    }
    writeBehind.Finish();
    writer.Commit();
    progress.Finish();
    ReportReplaced(request, reader.NonFiniteReplaced());
    summary.framesOut = sink.FramesOut();
    summary.elapsedSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return summary;
}

void WriteSoundFile(const std::filesystem::path& path, const SoundFileLayout& layout,
                    const double* samples, int64_t frames)
{
    AtomicSoundFileWriter writer(path, layout, frames);
    writer.Write(samples, frames);
    writer.Commit();
}
