#include "cli/host/SoundFile.h"

#include "cli/host/CliError.h"

#include <sndfile.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <vector>

namespace
{

std::string LowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string SystemReason(int error)
{
    return std::strerror(error);
}

[[noreturn]] void FailOn(const std::filesystem::path& path, const std::string& what,
                         const std::string& reason)
{
    throw CliError(CLI_EXIT_FAILED, what + " " + Quoted(path) + ": " + reason);
}

// libsndfile's messages end in a full stop; ours continue after them.
std::string LibraryReason(SNDFILE* file)
{
    std::string reason = sf_strerror(file);
    while (!reason.empty() &&
           (reason.back() == '.' || reason.back() == '\n' || reason.back() == ' '))
        reason.pop_back();
    return reason;
}

int EncodingOf(SampleFormat choice)
{
    switch (choice)
    {
    case SampleFormat::Pcm16: return SF_FORMAT_PCM_16;
    case SampleFormat::Pcm24: return SF_FORMAT_PCM_24;
    case SampleFormat::Pcm32: return SF_FORMAT_PCM_32;
    case SampleFormat::Float: return SF_FORMAT_FLOAT;
    case SampleFormat::Double: return SF_FORMAT_DOUBLE;
    case SampleFormat::Same: break;
    }
    return 0;
}

std::string NameOf(SampleFormat choice)
{
    for (const auto& [name, value] : SampleFormatNames())
        if (value == choice)
            return name;
    return "?";
}

bool CanWrite(int format, const SoundFileLayout& layout)
{
    SF_INFO info{};
    info.format = format;
    info.samplerate = layout.sampleRate;
    info.channels = layout.channels;
    return sf_format_check(&info) != 0;
}

// The encoding an extension stands for where its container holds several
// (an Ogg file named .opus holds Opus, not Vorbis); 0 where it names none.
int EncodingNamedByExtension(const std::filesystem::path& path)
{
    static const std::map<std::string, int> named = {{".opus", SF_FORMAT_OPUS},
                                                     {".mp1", SF_FORMAT_MPEG_LAYER_I},
                                                     {".mp2", SF_FORMAT_MPEG_LAYER_II},
                                                     {".mp3", SF_FORMAT_MPEG_LAYER_III}};
    auto found = named.find(LowerCase(path.extension().string()));
    return found == named.end() ? 0 : found->second;
}

// Lossy codecs are decoded on reading; encoding the result again is what a
// user asks for by keeping the container (Ogg to Ogg), not by changing it:
// MP3 input written as WAV should be plain samples, not MPEG inside RIFF.
bool KeepsEncoding(int inputFormat, int outputContainer)
{
    switch (inputFormat & SF_FORMAT_SUBMASK)
    {
    case SF_FORMAT_IMA_ADPCM:
    case SF_FORMAT_MS_ADPCM:
    case SF_FORMAT_GSM610:
    case SF_FORMAT_G721_32:
    case SF_FORMAT_G723_24:
    case SF_FORMAT_G723_40:
    case SF_FORMAT_VOX_ADPCM:
    case SF_FORMAT_NMS_ADPCM_16:
    case SF_FORMAT_NMS_ADPCM_24:
    case SF_FORMAT_NMS_ADPCM_32:
    case SF_FORMAT_VORBIS:
    case SF_FORMAT_OPUS:
    case SF_FORMAT_MPEG_LAYER_I:
    case SF_FORMAT_MPEG_LAYER_II:
    case SF_FORMAT_MPEG_LAYER_III: return (inputFormat & SF_FORMAT_TYPEMASK) == outputContainer;
    default: return true;
    }
}

// libsndfile's name of an encoding. Its table is asked by index, not by code.
std::string EncodingName(int encoding)
{
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_SUBTYPE_COUNT, &count, sizeof(count));
    for (int i = 0; i < count; ++i)
    {
        SF_FORMAT_INFO info{};
        info.format = i;
        if (sf_command(nullptr, SFC_GET_FORMAT_SUBTYPE, &info, sizeof(info)) == 0 &&
            info.format == encoding && info.name)
            return info.name;
    }
    return "encoding " + std::to_string(encoding);
}

std::string ContainerName(const std::filesystem::path& path)
{
    std::string extension = path.extension().string();
    if (!extension.empty())
        extension.erase(0, 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::toupper(c); });
    return extension;
}

// A WAV file's sizes are 32-bit: its data must end before 4 GiB, less the
// header and the chunks libsndfile may add after the data.
constexpr int64_t WAV_SIZE_LIMIT = (int64_t{1} << 32) - (int64_t{1} << 16);
// A chain may add a tail or latency: an output up to twice the input's length
// still counts as fitting.
constexpr int64_t OUTPUT_GROWTH_ALLOWANCE = 2;
constexpr int64_t LARGEST_SAMPLE_BYTES = 8;

// A WAV output that may not fit in 4 GiB goes out as RF64 that libsndfile
// turns back into a WAV header if it does fit after all; one that surely
// fits stays a plain WAV, byte for byte what it always was.
int FormatForSize(int format, int channels, int64_t expectedFrames)
{
    if ((format & SF_FORMAT_TYPEMASK) != SF_FORMAT_WAV)
        return format;
    if (expectedFrames > 0 && expectedFrames < WAV_SIZE_LIMIT &&
        expectedFrames * OUTPUT_GROWTH_ALLOWANCE * channels * LARGEST_SAMPLE_BYTES < WAV_SIZE_LIMIT)
        return format;
    return SF_FORMAT_RF64 | (format & SF_FORMAT_SUBMASK);
}

}  // namespace

const std::map<std::string, SampleFormat>& SampleFormatNames()
{
    static const std::map<std::string, SampleFormat> names = {
        {"same", SampleFormat::Same},   {"pcm16", SampleFormat::Pcm16},
        {"pcm24", SampleFormat::Pcm24}, {"pcm32", SampleFormat::Pcm32},
        {"float", SampleFormat::Float}, {"double", SampleFormat::Double},
    };
    return names;
}

std::string Quoted(const std::filesystem::path& path)
{
    return "'" + path.string() + "'";
}

// ---------------------------------------------------------------------------

SoundFileReader::SoundFileReader(const std::filesystem::path& path) : path(path)
{
    // Opening the descriptor ourselves gives the system's reason for a missing or
    // unreadable file instead of libsndfile's generic one.
    descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        FailOn(path, "cannot read", SystemReason(errno));
    struct stat status
    {
    };
    const bool known = fstat(descriptor, &status) == 0;
    if (known && S_ISDIR(status.st_mode))
    {
        close(descriptor);
        FailOn(path, "cannot read", "it is a folder");
    }
    SF_INFO info{};
    // A pipe cannot seek, and libsndfile reads one its own way; everything else
    // goes through the large buffer.
    if (known && S_ISREG(status.st_mode))
    {
        buffered = std::make_unique<BufferedDescriptor>(descriptor);
        file = sf_open_virtual(BufferedDescriptor::Callbacks(), SFM_READ, &info, buffered.get());
    }
    else
        file = sf_open_fd(descriptor, SFM_READ, &info, SF_FALSE);
    if (!file)
    {
        std::string reason = LibraryReason(nullptr);
        close(descriptor);
        FailOn(path, "cannot read", reason);
    }
    layout = {info.format, info.samplerate, info.channels};
    frames = info.frames;
}

SoundFileReader::~SoundFileReader()
{
    if (file)
        sf_close(file);
    if (descriptor >= 0)
        close(descriptor);
}

int64_t SoundFileReader::Read(double* samples, int64_t count)
{
    sf_count_t got = sf_readf_double(file, samples, count);
    if (buffered && buffered->Error() != 0)
        FailOn(path, "cannot read", SystemReason(buffered->Error()));
    if (got < count && sf_error(file) != SF_ERR_NO_ERROR)
        FailOn(path, "cannot read", LibraryReason(file));
    ReplaceNonFinite(samples, static_cast<size_t>(got) * static_cast<size_t>(layout.channels));
    return got;
}

void SoundFileReader::ReplaceNonFinite(double* samples, size_t count)
{
    // One NaN or infinity would run on through every recursive filter after it
    // and spoil the rest of the file; as silence, it costs one sample.
    for (size_t i = 0; i < count; ++i)
    {
        if (!std::isfinite(samples[i]))
        {
            samples[i] = 0.0;
            ++nonFiniteReplaced;
        }
    }
}

// ---------------------------------------------------------------------------

AtomicSoundFileWriter::AtomicSoundFileWriter(const std::filesystem::path& target,
                                             const SoundFileLayout& layout, int64_t expectedFrames)
    : target(target), output(target), buffered(output.Descriptor()), channels(layout.channels)
{
    SF_INFO info{};
    info.format = FormatForSize(layout.format, layout.channels, expectedFrames);
    info.samplerate = layout.sampleRate;
    info.channels = layout.channels;
    if (!CanWrite(info.format, layout))
        info.format = layout.format;  // an encoding only WAV holds: stays WAV
    file = sf_open_virtual(BufferedDescriptor::Callbacks(), SFM_WRITE, &info, &buffered);
    if (!file)
        FailOn(target, "cannot write", LibraryReason(nullptr));
    limitedToWav = (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV;
    // Only a WAV that went out as RF64 goes back; an .rf64 file stays RF64.
    if (info.format != layout.format)
        sf_command(file, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    // Without clipping, libsndfile wraps samples beyond full scale around in
    // integer encodings; with it, it also scales by 2^(bits-1) on the way out,
    // the inverse of its reading, so that integer samples survive a round trip.
    sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

AtomicSoundFileWriter::~AtomicSoundFileWriter()
{
    if (file)
        sf_close(file);
}

void AtomicSoundFileWriter::Write(const double* samples, int64_t count)
{
    if (count <= 0)
        return;
    RefuseWavOverflow(count);
    sf_count_t written = sf_writef_double(file, samples, count);
    if (buffered.Error() != 0)
        FailOn(target, "cannot write", SystemReason(buffered.Error()));
    if (written != count)
        FailOn(target, "cannot write", LibraryReason(file));
    framesWritten += written;
}

void AtomicSoundFileWriter::RefuseWavOverflow(int64_t count) const
{
    // Past 4 GiB a WAV header can only lie about its size: stop with a way out.
    if (!limitedToWav)
        return;
    const int64_t end = buffered.Position();
    if (end + count * channels * LARGEST_SAMPLE_BYTES >= WAV_SIZE_LIMIT)
        FailOn(target, "cannot write",
               "a WAV file holds at most 4 GiB; use .rf64 or .w64 for longer output");
}

void AtomicSoundFileWriter::Commit()
{
    // libsndfile completes the header when it closes; only then may the
    // rename show the file under its name.
    int closed = sf_close(file);
    file = nullptr;
    if (!buffered.Flush())
        FailOn(target, "cannot write", SystemReason(buffered.Error()));
    if (closed != 0)
        FailOn(target, "cannot write", sf_error_number(closed));
    output.Commit();
}

// ---------------------------------------------------------------------------

int ContainerForPath(const std::filesystem::path& path)
{
    std::string extension = LowerCase(path.extension().string());
    if (!extension.empty())
        extension.erase(0, 1);
    // Common spellings, each mapped to the extension libsndfile's own table lists.
    static const std::map<std::string, std::string> aliases = {
        {"aif", "aiff"}, {"aifc", "aiff"}, {"snd", "au"},  {"ogg", "oga"},
        {"opus", "oga"}, {"mp1", "m1a"},   {"mp2", "m1a"}, {"mp3", "m1a"}};
    if (auto alias = aliases.find(extension); alias != aliases.end())
        extension = alias->second;

    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof(count));
    for (int i = 0; i < count && !extension.empty(); ++i)
    {
        SF_FORMAT_INFO info{};
        info.format = i;
        sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &info, sizeof(info));
        if (info.extension && LowerCase(info.extension) == extension)
            return info.format;
    }
    throw CliError(CLI_EXIT_USAGE,
                   "cannot tell the file type of " + Quoted(path) +
                       " from its extension (use .wav, .flac, .aiff, .caf, .w64, .rf64, .ogg, "
                       ".opus, .mp3, ...)");
}

int ChooseOutputFormat(const std::filesystem::path& output, SampleFormat choice,
                       const SoundFileLayout& input, std::string* note)
{
    const int container = ContainerForPath(output);
    const std::string containerName = ContainerName(output);
    if (choice != SampleFormat::Same)
    {
        int format = container | EncodingOf(choice);
        if (CanWrite(format, input))
            return format;
        throw CliError(CLI_EXIT_USAGE, containerName + " files cannot hold " + NameOf(choice) +
                                           " samples with " + std::to_string(input.channels) +
                                           " channels at " + std::to_string(input.sampleRate) +
                                           " Hz (" + Quoted(output) + ")");
    }

    const int inputEncoding = input.format & SF_FORMAT_SUBMASK;
    const int named = EncodingNamedByExtension(output);
    if (named == 0 && KeepsEncoding(input.format, container) &&
        CanWrite(container | inputEncoding, input))
        return container | inputEncoding;
    // The input's encoding does not fit this container (say, a compressed one):
    // take the first encoding that holds the decoded samples without loss first,
    // or the one the extension names.
    static const std::vector<int> fallbacks = {SF_FORMAT_FLOAT,  SF_FORMAT_PCM_24,
                                               SF_FORMAT_PCM_16, SF_FORMAT_VORBIS,
                                               SF_FORMAT_OPUS,   SF_FORMAT_MPEG_LAYER_III};
    for (int encoding : named != 0 ? std::vector<int>{named} : fallbacks)
    {
        if (!CanWrite(container | encoding, input))
            continue;
        if (note && encoding != inputEncoding)
            *note = containerName + " files cannot hold the input's encoding; writing " +
                    EncodingName(encoding);
        return container | encoding;
    }
    throw CliError(CLI_EXIT_USAGE, containerName + " files cannot hold " +
                                       std::to_string(input.channels) + " channels at " +
                                       std::to_string(input.sampleRate) + " Hz (" + Quoted(output) +
                                       ")");
}

bool IsSameFile(const std::filesystem::path& a, const std::filesystem::path& b)
{
    std::error_code error;
    return std::filesystem::equivalent(a, b, error) && !error;
}
