#include "cli/host/SoundFile.h"

#include "cli/host/CliError.h"

#include <sndfile.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
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

std::string ContainerName(const std::filesystem::path& path)
{
    std::string extension = path.extension().string();
    if (!extension.empty())
        extension.erase(0, 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::toupper(c); });
    return extension;
}

// Permission bits for a new output: those of the file it replaces, or what the
// umask leaves of rw-rw-rw-, as if the file had been created directly.
mode_t OutputMode(const std::filesystem::path& target)
{
    struct stat existing
    {
    };
    if (stat(target.c_str(), &existing) == 0 && S_ISREG(existing.st_mode))
        return existing.st_mode & 07777;
    mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
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
    int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        FailOn(path, "cannot read", SystemReason(errno));
    struct stat status
    {
    };
    if (fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode))
    {
        close(descriptor);
        FailOn(path, "cannot read", "it is a folder");
    }
    SF_INFO info{};
    file = sf_open_fd(descriptor, SFM_READ, &info, SF_TRUE);
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
}

int64_t SoundFileReader::Read(double* samples, int64_t count)
{
    sf_count_t got = sf_readf_double(file, samples, count);
    if (got < count && sf_error(file) != SF_ERR_NO_ERROR)
        FailOn(path, "cannot read", LibraryReason(file));
    return got;
}

// ---------------------------------------------------------------------------

AtomicSoundFileWriter::AtomicSoundFileWriter(const std::filesystem::path& target,
                                             const SoundFileLayout& layout)
    : target(target)
{
    std::error_code error;
    if (std::filesystem::is_directory(target, error))
        FailOn(target, "cannot write", "it is a folder");

    std::filesystem::path folder = target.parent_path();
    if (folder.empty())
        folder = ".";
    std::string pattern = (folder / ("." + target.filename().string() + ".XXXXXX")).string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    descriptor = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor < 0)
        FailOn(target, "cannot write", SystemReason(errno));
    temporaryPath = name.data();
    fchmod(descriptor, OutputMode(target));

    SF_INFO info{};
    info.format = layout.format;
    info.samplerate = layout.sampleRate;
    info.channels = layout.channels;
    file = sf_open_fd(descriptor, SFM_WRITE, &info, SF_FALSE);
    if (!file)
    {
        std::string reason = LibraryReason(nullptr);
        Discard();
        FailOn(target, "cannot write", reason);
    }
    // Without clipping, libsndfile wraps samples beyond full scale around in
    // integer encodings; with it, it also scales by 2^(bits-1) on the way out,
    // the inverse of its reading, so that integer samples survive a round trip.
    sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

AtomicSoundFileWriter::~AtomicSoundFileWriter()
{
    Discard();
}

void AtomicSoundFileWriter::Write(const double* samples, int64_t count)
{
    if (count <= 0)
        return;
    sf_count_t written = sf_writef_double(file, samples, count);
    if (written != count)
        FailOn(target, "cannot write", LibraryReason(file));
    framesWritten += written;
    StartWriteback();
}

void AtomicSoundFileWriter::StartWriteback()
{
    // The file goes to disk while the rest is still being made, so that the
    // fsync before the rename finds little left to wait for. Advice only: where
    // it isn't supported, the fsync does all the work as before.
    constexpr off_t step = 8 << 20;
    const off_t end = lseek(descriptor, 0, SEEK_CUR);
    if (end < writebackStarted + step)
        return;
    sync_file_range(descriptor, writebackStarted, end - writebackStarted, SYNC_FILE_RANGE_WRITE);
    writebackStarted = end;
}

void AtomicSoundFileWriter::Commit()
{
    // libsndfile completes the header when it closes; the data must be on disk
    // before the rename makes the file visible under its name.
    int closed = sf_close(file);
    file = nullptr;
    if (closed != 0)
        FailOn(target, "cannot write", sf_error_number(closed));
    if (fsync(descriptor) != 0)
        FailOn(target, "cannot write", SystemReason(errno));
    close(descriptor);
    descriptor = -1;
    if (rename(temporaryPath.c_str(), target.c_str()) != 0)
        FailOn(target, "cannot write", SystemReason(errno));
    temporaryPath.clear();
}

void AtomicSoundFileWriter::Discard()
{
    if (file)
        sf_close(file);
    file = nullptr;
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
    if (!temporaryPath.empty())
        unlink(temporaryPath.c_str());
    temporaryPath.clear();
}

// ---------------------------------------------------------------------------

int ContainerForPath(const std::filesystem::path& path)
{
    std::string extension = LowerCase(path.extension().string());
    if (!extension.empty())
        extension.erase(0, 1);
    // Common spellings that libsndfile's own table does not list.
    static const std::map<std::string, std::string> aliases = {
        {"aif", "aiff"}, {"aifc", "aiff"}, {"snd", "au"}, {"oga", "ogg"}, {"opus", "ogg"}};
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
                       " from its extension (use .wav, .flac, .aiff, .caf, .w64, .rf64, ...)");
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

    int same = container | (input.format & SF_FORMAT_SUBMASK);
    if (CanWrite(same, input))
        return same;
    // The input's encoding does not fit this container (say, a compressed one):
    // take the first encoding that holds the decoded samples without loss first.
    const int fallbacks[] = {SF_FORMAT_FLOAT, SF_FORMAT_PCM_24, SF_FORMAT_PCM_16, SF_FORMAT_VORBIS};
    for (int encoding : fallbacks)
    {
        if (CanWrite(container | encoding, input))
        {
            if (note)
            {
                SF_FORMAT_INFO info{};
                info.format = encoding;
                sf_command(nullptr, SFC_GET_FORMAT_SUBTYPE, &info, sizeof(info));
                *note =
                    containerName + " files cannot hold the input's encoding; writing " + info.name;
            }
            return container | encoding;
        }
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
