// qvdsp info: what the module's own readers see in audio files: the reader,
// the format, where the samples lie, the chunks, the INFO list and the
// broadcast description, and on request the samples of some frames.
#include "cli/commands/Commands.h"

#include "audiofile/IFFInfo.h"
#include "audiofile/SampleValues.h"
#include "audiofile/WAVInfo.h"
#include "audiofile/Wave64Info.h"
#include "core/QVFileSystem.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace
{

struct InfoOptions
{
    std::vector<std::string> files;
    bool json = false;
    std::string samples;
    bool wantSamples = false;
    int64_t firstFrame = 0;
    int64_t frameCount = 0;
};

// "START:COUNT", both whole numbers of frames.
bool ParseFrameRange(const std::string& text, int64_t& start, int64_t& count)
{
    const size_t colon = text.find(':');
    if (colon == std::string::npos)
        return false;
    const char* end = text.data() + text.size();
    const auto first = std::from_chars(text.data(), text.data() + colon, start);
    const auto second = std::from_chars(text.data() + colon + 1, end, count);
    return first.ec == std::errc() && first.ptr == text.data() + colon &&
           second.ec == std::errc() && second.ptr == end && start >= 0 && count >= 0;
}

std::string Utf8(const QVString& text)
{
    return text.ToUTF8();
}

std::string FormatTagName(int64_t tag)
{
    switch (tag)
    {
    case 1: return "PCM";
    case 3: return "IEEE float";
    case 7: return "mu-law";
    case 8: return "DTS";
    case 80: return "MPEG";
    case 146: return "encoded (146)";
    case 0xFFFE: return "extensible";
    default: return "other";
    }
}

std::string GuidText(const GUID& guid)
{
    uint8_t bytes[16];
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<uint8_t>(guid.Data1 >> (8 * i));
    bytes[4] = static_cast<uint8_t>(guid.Data2);
    bytes[5] = static_cast<uint8_t>(guid.Data2 >> 8);
    bytes[6] = static_cast<uint8_t>(guid.Data3);
    bytes[7] = static_cast<uint8_t>(guid.Data3 >> 8);
    std::memcpy(bytes + 8, guid.Data4, 8);
    return CWave64Info::GuidText(bytes);
}

std::string EncodingName(const CAudioFormat& format)
{
    switch (GetSampleEncoding(format))
    {
    case ESampleEncoding::Integer: return "integer";
    case ESampleEncoding::Float: return "float";
    default: return "other";
    }
}

// The shortest text that reads back as the same double.
std::string NumberText(double value)
{
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

std::string SizeText(int64_t bytes)
{
    return std::to_string(bytes) + " (" + Utf8(QVFileSystem::FormatFileSize(bytes)) + ")";
}

// INFO entries sorted by name, for both readers that have a list.
std::vector<std::pair<std::string, std::string>> InfoEntries(const CIFFInfo& reader)
{
    const QVInfoList* list = nullptr;
    if (const auto* wave = dynamic_cast<const CWAVInfo*>(&reader))
        list = &wave->GetInfoList();
    else if (const auto* wave64 = dynamic_cast<const CWave64Info*>(&reader))
        list = &wave64->GetInfoList();
    std::vector<std::pair<std::string, std::string>> entries;
    if (list != nullptr)
    {
        for (const auto& node : *list)
            entries.emplace_back(Utf8(node.key), Utf8(node.value));
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

const CBroadcastExtension* BroadcastExtensionOf(const CIFFInfo& reader)
{
    const auto* wave = dynamic_cast<const CWAVInfo*>(&reader);
    return wave != nullptr ? wave->GetBroadcastExtension() : nullptr;
}

struct SampleRows
{
    bool shown = false;
    std::string reason;
    int64_t firstFrame = 0;
    std::vector<std::vector<double>> frames;
};

SampleRows ReadSampleRows(CIFFInfo& reader, int64_t first, int64_t count)
{
    SampleRows rows;
    rows.firstFrame = first;
    if (GetSampleEncoding(reader.GetFormat()) == ESampleEncoding::Other)
    {
        rows.reason = "the encoding is not integer or float PCM";
        return rows;
    }
    const int64_t channels = reader.GetChannels();
    const int64_t frameBytes = reader.GetBitsPerFrame() / 8;
    if (channels < 1 || frameBytes < channels * (reader.GetFormat().bitsPerSample / 8))
    {
        rows.reason = "the frame layout does not hold whole samples";
        return rows;
    }
    const int64_t available = std::max<int64_t>(0, reader.GetFrames() - first);
    count = std::min(count, available);
    std::vector<uint8_t> bytes(static_cast<size_t>(count * frameBytes));
    int64_t got = 0;
    if (count > 0 && reader.Read(bytes.data(), first, count, &got, false) < 0)
    {
        rows.reason = "the samples could not be read";
        return rows;
    }
    std::vector<double> values(static_cast<size_t>(channels));
    for (int64_t frame = 0; (frame + 1) * frameBytes <= got; ++frame)
    {
        SamplesToDoubles(reader, bytes.data() + frame * frameBytes, channels, values.data());
        rows.frames.push_back(values);
    }
    rows.shown = true;
    return rows;
}

nlohmann::json JsonOf(CIFFInfo& reader, const std::string& file, const InfoOptions& options)
{
    const CAudioFormat& format = reader.GetFormat();
    nlohmann::json object = {
        {"file", file},
        {"reader", reader.GetReaderName()},
        {"formatTag", reader.GetFormatTag()},
        {"formatName", FormatTagName(reader.GetFormatTag())},
        {"subFormat", GuidText(format.subFormat)},
        {"encoding", EncodingName(format)},
        {"channels", reader.GetChannels()},
        {"sampleRate", reader.GetSampleRate()},
        {"bitsPerSample", int64_t{format.bitsPerSample}},
        {"validBits", reader.GetValidBits()},
        {"blockAlign", reader.GetBlockAlign()},
        {"bytesPerSecond", reader.GetAverageBytesPerSecond()},
        {"frames", reader.GetFrames()},
        {"durationMs", reader.GetDuration()},
        {"dataStart", reader.GetDataStart()},
        {"dataSize", reader.GetDataSize()},
        {"trailingSize", reader.GetTrailingSize()},
        {"fileSize", reader.GetFileSize()},
    };
    nlohmann::json chunks = nlohmann::json::array();
    for (const CChunkSummary& chunk : reader.DescribeChunks())
        chunks.push_back({{"id", chunk.id}, {"size", chunk.size}, {"position", chunk.position}});
    object["chunks"] = chunks;
    nlohmann::json info = nlohmann::json::object();
    for (const auto& [name, value] : InfoEntries(reader))
        info[name] = value;
    object["info"] = info;
    if (const CBroadcastExtension* bext = BroadcastExtensionOf(reader))
    {
        object["bext"] = {
            {"description", CBroadcastExtension::Text(bext->description, sizeof bext->description)},
            {"originator", CBroadcastExtension::Text(bext->originator, sizeof bext->originator)},
            {"originationDate",
             CBroadcastExtension::Text(bext->originationDate, sizeof bext->originationDate)},
            {"originationTime",
             CBroadcastExtension::Text(bext->originationTime, sizeof bext->originationTime)},
            {"codingHistory", bext->codingHistory},
        };
    }
    if (options.wantSamples)
    {
        const SampleRows rows = ReadSampleRows(reader, options.firstFrame, options.frameCount);
        if (rows.shown)
        {
            object["samplesStart"] = rows.firstFrame;
            object["samples"] = rows.frames;
        }
        else
            object["samplesError"] = rows.reason;
    }
    return object;
}

void PrintText(CIFFInfo& reader, const std::string& file, const InfoOptions& options)
{
    const CAudioFormat& format = reader.GetFormat();
    std::ostream& out = std::cout;
    out << file << '\n';
    out << "  reader:           " << reader.GetReaderName() << '\n';
    out << "  format tag:       " << reader.GetFormatTag() << " ("
        << FormatTagName(reader.GetFormatTag()) << ")\n";
    out << "  sub-format:       " << GuidText(format.subFormat) << '\n';
    out << "  encoding:         " << EncodingName(format) << '\n';
    out << "  channels:         " << reader.GetChannels() << '\n';
    out << "  sample rate:      " << reader.GetSampleRate() << " Hz\n";
    out << "  bits per sample:  " << format.bitsPerSample << " (valid " << reader.GetValidBits()
        << ")\n";
    out << "  block align:      " << reader.GetBlockAlign() << '\n';
    out << "  bytes per second: " << reader.GetAverageBytesPerSecond() << '\n';
    out << "  frames:           " << reader.GetFrames() << '\n';
    out << "  duration:         " << reader.GetDuration() << " ms\n";
    out << "  data start:       " << reader.GetDataStart() << '\n';
    out << "  data size:        " << SizeText(reader.GetDataSize()) << '\n';
    out << "  trailing bytes:   " << SizeText(reader.GetTrailingSize()) << '\n';
    out << "  file size:        " << SizeText(reader.GetFileSize()) << '\n';
    const std::vector<CChunkSummary> chunks = reader.DescribeChunks();
    if (!chunks.empty())
    {
        out << "  chunks (id, size, position):\n";
        for (const CChunkSummary& chunk : chunks)
            out << "    " << chunk.id << "  " << chunk.size << "  " << chunk.position << '\n';
    }
    const auto entries = InfoEntries(reader);
    if (!entries.empty())
    {
        out << "  INFO:\n";
        for (const auto& [name, value] : entries)
            out << "    " << name << ": " << value << '\n';
    }
    if (const CBroadcastExtension* bext = BroadcastExtensionOf(reader))
    {
        out << "  bext description: "
            << CBroadcastExtension::Text(bext->description, sizeof bext->description) << '\n';
    }
    if (options.wantSamples)
    {
        const SampleRows rows = ReadSampleRows(reader, options.firstFrame, options.frameCount);
        if (!rows.shown)
        {
            out << "  samples: not shown, " << rows.reason << '\n';
            return;
        }
        out << "  samples (frame, then one value per channel):\n";
        for (size_t i = 0; i < rows.frames.size(); ++i)
        {
            out << "    " << rows.firstFrame + static_cast<int64_t>(i);
            for (double value : rows.frames[i])
                out << '\t' << NumberText(value);
            out << '\n';
        }
    }
}

// Why a file did not open: the system's reason when it cannot be read at
// all, else what the reader missed.
std::string FailureReason(const std::string& file, const CIFFInfo& reader)
{
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return std::strerror(errno);
    ::close(descriptor);
    return std::string("not a file that ") + reader.GetReaderName() +
           " reads (no format or no sample data found)";
}

void RunInfo(const InfoOptions& options)
{
    // Each failure is one line on standard error, in file order. The last one
    // leaves through CliError, which prints it and sets the exit code.
    std::string pending;
    nlohmann::json all = nlohmann::json::array();
    for (const std::string& file : options.files)
    {
        const QVString name = QVString::FromUTF8(file);
        std::unique_ptr<CIFFInfo> reader = CIFFInfo::CreateForFileName(name);
        if (reader->OpenFile(name, false, true) != 0)
        {
            const std::string reason = FailureReason(file, *reader);
            if (!pending.empty())
                std::cerr << "qvdsp: " << pending << '\n';
            pending = file + ": " + reason;
            if (options.json)
                all.push_back({{"file", file}, {"error", reason}});
            continue;
        }
        if (options.json)
            all.push_back(JsonOf(*reader, file, options));
        else
            PrintText(*reader, file, options);
    }
    if (options.json)
        std::cout << all.dump(2) << '\n';
    std::cout.flush();
    if (!pending.empty())
        throw CliError(CLI_EXIT_FAILED, pending);
}

}  // namespace

void AddInfoCommand(CLI::App& app, CliContext& context)
{
    CLI::App* command = app.add_subcommand(
        "info", "Show what the module's own readers see in audio files (WAV, RF64, AIFF, AIFC, "
                "AU, Wave64, CAF, raw .l16/.l24)");
    auto options = std::make_shared<InfoOptions>();
    command->add_option("FILE", options->files, "Audio files")->required();
    command->add_flag("--json", options->json, "One JSON object per file, in an array");
    command->add_option("--samples", options->samples,
                        "Also show the samples of COUNT frames from frame START (START:COUNT)");
    SetCommandAction(
        *command, context,
        [options]
        {
            if (!options->samples.empty())
            {
                if (!ParseFrameRange(options->samples, options->firstFrame, options->frameCount))
                    throw CliError(CLI_EXIT_USAGE, "--samples wants START:COUNT, two whole numbers "
                                                   "of frames, not '" +
                                                       options->samples + "'");
                options->wantSamples = true;
            }
            RunInfo(*options);
        });
}
