// Audio files of the command-line host, through libsndfile: a reader that
// hands out interleaved doubles, a writer that never leaves a partial file
// behind, and the choice of container and sample format for an output.
#pragma once

#include "cli/host/BufferedDescriptor.h"
#include "cli/host/ReplacingFile.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include <sys/types.h>

struct sf_private_tag;

// The sample formats that --format names; Same keeps the input's.
enum class SampleFormat
{
    Same,
    Pcm16,
    Pcm24,
    Pcm32,
    Float,
    Double
};

// "same", "pcm16", ... for the command line.
const std::map<std::string, SampleFormat>& SampleFormatNames();

// What a file holds: libsndfile's format word (container | encoding), rate, channels.
struct SoundFileLayout
{
    int format = 0;
    int sampleRate = 0;
    int channels = 0;
};

class SoundFileReader
{
public:
    // Throws CliError (failed) naming the file and the reason.
    explicit SoundFileReader(const std::filesystem::path& path);
    ~SoundFileReader();
    SoundFileReader(const SoundFileReader&) = delete;
    SoundFileReader& operator=(const SoundFileReader&) = delete;

    const SoundFileLayout& Layout() const { return layout; }
    // Frame count from the header; 0 or less when the container does not say.
    int64_t Frames() const { return frames; }
    // Reads up to `count` frames into `samples` (count * channels doubles, full
    // scale 1.0), a NaN or infinity read as 0. Returns the frames read, 0 at
    // the end; throws on a read error.
    int64_t Read(double* samples, int64_t count);
    // How many samples so far were NaN or infinite and read as 0.
    int64_t NonFiniteReplaced() const { return nonFiniteReplaced; }

private:
    void ReplaceNonFinite(double* samples, size_t count);

    std::filesystem::path path;
    int descriptor = -1;
    std::unique_ptr<BufferedDescriptor> buffered;  // none for a pipe
    sf_private_tag* file = nullptr;
    SoundFileLayout layout;
    int64_t frames = 0;
    int64_t nonFiniteReplaced = 0;
};

// Writes through a ReplacingFile: the target is either untouched or complete.
// A WAV output that may outgrow 4 GiB (by `expectedFrames`, 0 or less when
// unknown) is written as RF64 that falls back to a WAV header if it fits.
class AtomicSoundFileWriter
{
public:
    // Throws CliError (failed) when the folder cannot take the file.
    AtomicSoundFileWriter(const std::filesystem::path& target, const SoundFileLayout& layout,
                          int64_t expectedFrames);
    // Without Commit, the temporary file goes.
    ~AtomicSoundFileWriter();
    AtomicSoundFileWriter(const AtomicSoundFileWriter&) = delete;
    AtomicSoundFileWriter& operator=(const AtomicSoundFileWriter&) = delete;

    // Integer encodings clip at full scale rather than wrap around.
    void Write(const double* samples, int64_t count);
    void Commit();
    int64_t FramesWritten() const { return framesWritten; }
    const std::filesystem::path& TemporaryPath() const { return output.TemporaryPath(); }

private:
    void RefuseWavOverflow(int64_t count) const;

    std::filesystem::path target;
    ReplacingFile output;
    BufferedDescriptor buffered;
    sf_private_tag* file = nullptr;
    int channels = 0;
    bool limitedToWav = false;
    int64_t framesWritten = 0;
};

// libsndfile's container for the file name's extension (case-blind).
// Throws CliError (usage) for an extension that names no container it writes.
int ContainerForPath(const std::filesystem::path& path);

// The format word for writing `output`: its container, and the encoding that
// `choice` names, or the input's encoding for Same (falling back to an encoding
// the container can hold, with a note in `note`). Throws CliError (usage) when
// the container cannot hold the encoding, channels or rate.
int ChooseOutputFormat(const std::filesystem::path& output, SampleFormat choice,
                       const SoundFileLayout& input, std::string* note = nullptr);

// True when both paths name one existing file (same device and inode), whatever
// links or relative parts lead there.
bool IsSameFile(const std::filesystem::path& a, const std::filesystem::path& b);

// The file name as the user should see it in messages.
std::string Quoted(const std::filesystem::path& path);
