// The filter part of a load: which file the chosen name leads to, how an
// impulse audio file or a convolver configuration becomes paths, and how an
// impulse becomes partition spectra.
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <regex>
#include <string>

#include "audiofile/IFFInfo.h"
#include "convolution/AudioConvolution.h"
#include "core/QVFileSystem.h"
#include "frame/IQVTools.h"

namespace
{

struct CChannelText
{
    const char16_t* text;
    int32_t channels;
};

struct CRateText
{
    const char16_t* text;
    uint32_t sampleRate;
};

// Tried in this order; a format may have several spellings.
constexpr CChannelText kChannelTexts[] = {{u"5.1", 6}, {u"2.0", 2}, {u"2", 2}};
constexpr CRateText kRateTexts[] = {
    {u"441", 44100},   {u"48", 48000},   {u"882", 88200},  {u"96", 96000},    {u"176", 176400},
    {u"1764", 176400}, {u"192", 192000}, {u"352", 352800}, {u"3528", 352800}, {u"384", 384000},
};

// The configuration lines of one block, counted from its first line.
constexpr int32_t kBlockFileLine = 0;
constexpr int32_t kBlockFileChannelLine = 1;
constexpr int32_t kBlockInputsLine = 2;
constexpr int32_t kBlockOutputLine = 3;
constexpr int32_t kLinesPerBlock = 4;
constexpr int32_t kDelaysLine = 2;  // the third line
constexpr int32_t kFirstBlockLine = 3;

constexpr int32_t kConverterBitDepth = 64;

std::wstring Wide(const QVString& text)
{
    std::wstring wide;
    for (char16_t c : text.View())
        wide += static_cast<wchar_t>(c);
    return wide;
}

QVString FromWide(const std::wstring& wide)
{
    std::u16string text;
    for (wchar_t c : wide)
        text += static_cast<char16_t>(c);
    return QVString(std::u16string_view(text));
}

// Configurations written on Windows name files with "\", ours with "/".
int32_t LastSeparator(const QVString& path)
{
    return std::max(path.ReverseFind(u'/'), path.ReverseFind(u'\\'));
}

QVString FolderOf(const QVString& path)
{
    return path.Left(LastSeparator(path) + 1);
}

QVString NameOf(const QVString& path)
{
    return path.Mid(LastSeparator(path) + 1);
}

QVString ExtensionOf(const QVString& path)
{
    const QVString name = NameOf(path);
    const int32_t dot = name.ReverseFind(u'.');
    return dot >= 0 ? name.Mid(dot + 1) : QVString();
}

QVString ResolveBlockFile(const QVString& name, const QVString& configurationFolder)
{
    if (LastSeparator(name) < 0)
        return configurationFolder + name;
    if (QVFileSystem::FileExists(name, true))
        return name;
    // A stale absolute path: the file was moved along with its configuration.
    return configurationFolder + NameOf(name);
}

// The thread's number makes the name unique among the loads running at once,
// in this process and in others.
QVString MakeConverterTarget()
{
    const auto thread = static_cast<int64_t>(::syscall(SYS_gettid));
    return QVFileSystem::GetTempPath() + u"Convolution" + QVString::FromInt(thread) + u".wav";
}

}  // namespace

QVString CAudioConvolution::MatchFilterName(const QVString& chosen, uint32_t sampleRate,
                                            int32_t channelCount)
{
    static const std::wregex pattern(L"^(.+)(\\d{1}.\\d{1})_(\\d{2,4}).cfg$",
                                     std::regex::ECMAScript | std::regex::icase);
    const std::wstring wide = Wide(chosen);
    std::wsmatch match;
    if (!std::regex_match(wide, match, pattern))
        return chosen;
    const QVString stem = FromWide(match[1].str());

    std::vector<QVString> channelCandidates;
    for (const CChannelText& entry : kChannelTexts)
        if (entry.channels == channelCount)
            channelCandidates.emplace_back(entry.text);
    if (channelCandidates.empty())
        channelCandidates.push_back(FromWide(match[2].str()));

    std::vector<QVString> rateCandidates;
    for (const CRateText& entry : kRateTexts)
        if (entry.sampleRate == sampleRate)
            rateCandidates.emplace_back(entry.text);

    for (const QVString& channelText : channelCandidates)
        for (const QVString& rateText : rateCandidates)
        {
            const QVString candidate = stem + channelText + u"_" + rateText + u".cfg";
            if (QVFileSystem::FileExists(candidate, true))
                return candidate;
        }
    return chosen;
}

void CAudioConvolution::LoadFilter()
{
    FilterFileMap files;
    loadFiles = &files;
    effectiveFilterName = autoMatchFilter
                              ? MatchFilterName(filterName, format.sampleRate, format.channels)
                              : filterName;
    // Case sensitive on purpose: room.CFG is read as an audio file.
    const QVString extension = ExtensionOf(effectiveFilterName);
    if (extension == u"txt" || extension == u"cfg")
        LoadConfiguration(effectiveFilterName);
    else if (effectiveFilterName.IsEmpty())
    {
        loadError = true;
        Note(0, QVString(u"no filter chosen"));
    }
    else
        LoadImpulseFile(effectiveFilterName);
    loadFiles = nullptr;
}

void CAudioConvolution::Note(int32_t line, const QVString& text)
{
    loadNotes.push_back(CLoadNote{line, text});
}

void CAudioConvolution::AddPath(CPath* path)
{
    partitionCount = std::max(partitionCount, path->GetPartitions());
    paths.Add(path);
}

void CAudioConvolution::LoadImpulseFile(const QVString& name)
{
    CFilterFile* file = GetFilterFile(name);
    if (file == nullptr)
    {
        loadError = true;
        Note(0, QVString::Format(u"cannot read \"%s\"", name));
        return;
    }
    for (int32_t k = 0; k < file->channels && k < format.channels; ++k)
    {
        auto path = std::make_unique<CPath>();
        path->outputChannel = k;
        path->lines.push_back(CPath::CInputLine{k, 1.0});
        if (BuildPathFilter(*path, *file, k, file->gain, 0))
            AddPath(path.release());
        else
            Note(0, QVString::Format(u"channel %d of \"%s\" is silent", k, name));
    }
}

void CAudioConvolution::LoadConfiguration(const QVString& name)
{
    QVString text;
    if (!QVFileSystem::ReadTextFile(name, text))
    {
        loadError = true;
        Note(0, QVString::Format(u"cannot read \"%s\"", name));
        return;
    }
    text.Replace(u"\r\n", u"\n");
    text.Replace(u'\r', u'\n');
    const QVStringArray lines = text.Split(u"\n", true);
    const int32_t lineCount = lines.GetCount();
    QVStringArray delays;
    if (lineCount > kDelaysLine)
        delays = lines[kDelaysLine].Split(u" ", false);
    const QVString folder = FolderOf(name);
    for (int32_t first = kFirstBlockLine; first < lineCount - 3; first += kLinesPerBlock)
        LoadConfigurationBlock(lines, first, delays, folder);
}

void CAudioConvolution::LoadConfigurationBlock(const QVStringArray& lines, int32_t first,
                                               const QVStringArray& delays, const QVString& folder)
{
    const int32_t lineNumber = first + 1;  // as a user counts them
    QVString fileName = lines[first + kBlockFileLine];
    fileName.Trim();
    const QVString resolved = ResolveBlockFile(fileName, folder);
    CFilterFile* file = GetFilterFile(resolved);
    if (file == nullptr)
    {
        loadError = true;
        Note(lineNumber, QVString::Format(u"cannot read \"%s\"", resolved));
        return;
    }

    const int64_t fileChannel = lines[first + kBlockFileChannelLine].ToInt();
    const int64_t outputChannel = lines[first + kBlockOutputLine].ToInt();
    if (fileChannel < 0 || fileChannel >= file->channels)
    {
        Note(lineNumber,
             QVString::Format(u"skipped: \"%s\" has no channel %d", resolved, fileChannel));
        return;
    }
    if (outputChannel < 0 || outputChannel >= format.channels)
    {
        Note(lineNumber,
             QVString::Format(u"skipped: the stream has no output channel %d", outputChannel));
        return;
    }

    const double delayMilliseconds = outputChannel < delays.GetCount()
                                         ? delays[static_cast<int32_t>(outputChannel)].ToDouble()
                                         : 0.0;
    const int64_t fileFrames = static_cast<int64_t>(file->samples.size()) / file->channels;
    const double longestMilliseconds =
        static_cast<double>(MAX_IMPULSE_FRAMES - fileFrames) * 1000.0 / format.sampleRate;
    if (!(delayMilliseconds <= longestMilliseconds))  // also NaN
    {
        Note(lineNumber,
             QVString::Format(u"skipped: the delay of output channel %d, %s ms, makes the path "
                              u"longer than %d frames",
                              outputChannel, delays[static_cast<int32_t>(outputChannel)],
                              MAX_IMPULSE_FRAMES));
        return;
    }
    const int64_t delayFrames = format.FramesFromMilliseconds(std::max(delayMilliseconds, 0.0));

    auto path = std::make_unique<CPath>();
    path->outputChannel = static_cast<int32_t>(outputChannel);
    if (!BuildPathFilter(*path, *file, static_cast<int32_t>(fileChannel), file->gain,
                         static_cast<int32_t>(delayFrames)))
    {
        Note(lineNumber,
             QVString::Format(u"dropped: channel %d of \"%s\" is silent", fileChannel, resolved));
        return;
    }
    partitionCount = std::max(partitionCount, path->GetPartitions());

    // The gain is the number that the token makes without its first
    // character: "0.5" is channel 0 at 0.5, "1.25" channel 1 at 0.25, "12.5"
    // channel 12 at 2.5. Configurations in the field rely on this reading.
    for (const QVString& token : lines[first + kBlockInputsLine].Split(u" ", true))
    {
        const int64_t channel = token.ToInt();
        double gain = token.IsEmpty() ? 0.0 : token.Mid(1).ToDouble();
        if (gain == 0.0)
            gain = 1.0;
        if (channel < 0 || channel >= format.channels)
            continue;
        path->lines.push_back(CPath::CInputLine{static_cast<int32_t>(channel), gain});
    }
    if (path->lines.empty())
    {
        Note(lineNumber, QVString(u"dropped: no input channel of the stream"));
        return;
    }

    // One common gain goes into the filter, so that the path needs no mix.
    const double common = path->lines[0].gain;
    const bool allCommon =
        std::all_of(path->lines.begin(), path->lines.end(),
                    [common](const CPath::CInputLine& line) { return line.gain == common; });
    if (allCommon && common != 1.0)
    {
        path->ScaleFilter(common);
        for (CPath::CInputLine& line : path->lines)
            line.gain = 1.0;
    }
    paths.Add(path.release());
}

CAudioConvolution::CFilterFile* CAudioConvolution::GetFilterFile(const QVString& name)
{
    for (const auto& [known, file] : *loadFiles)
        if (known.CompareNoCase(name) == 0)
            return file.get();
    std::unique_ptr<CFilterFile> file(ConvertFilterFile(name));
    CFilterFile* result = file.get();
    loadFiles->emplace_back(name, std::move(file));
    return result;
}

// Every impulse passes through the tools' converter, also one that needs no
// conversion: it gives one 64-bit float file at the stream's rate, which the
// module's own reader then takes in one read.
CAudioConvolution::CFilterFile* CAudioConvolution::ConvertFilterFile(const QVString& name)
{
    IQVTools* tools = GetQVTools();
    IQVSoundConverter* converter = tools != nullptr ? tools->CreateSoundConverter() : nullptr;
    if (converter == nullptr)
        return nullptr;
    const uint32_t rate = format.sampleRate;
    converter->SetTargetSampleRate(static_cast<int32_t>(rate));
    converter->SetTargetBitDepth(kConverterBitDepth);
    const QVString target = MakeConverterTarget();
    QVString output;
    double gain = 1.0;
    if (converter->Convert(name, target) == 1)
    {
        output = converter->GetProperty(QVString(u"Output Filename"));
        const double sourceRate = converter->GetProperty(QVString(u"Input Samplerate")).ToDouble();
        // An impulse's sum grows with its rate; the factor keeps its energy.
        if (sourceRate > 0.0 && sourceRate != static_cast<double>(rate))
            gain = sourceRate / static_cast<double>(rate);
    }
    converter->Release();
    if (output.IsEmpty())
    {
        if (QVFileSystem::FileExists(target, true))
            QVFileSystem::DeleteFile(target);
        return nullptr;
    }

    std::unique_ptr<CFilterFile> file;
    std::unique_ptr<CIFFInfo> reader = CIFFInfo::CreateForFileName(output);
    if (reader->OpenFile(output, false, false) == 0 && reader->GetFormat().bitsPerSample == 64 &&
        reader->GetSampleRate() == rate && reader->GetChannels() >= 1 &&
        reader->GetDataSize() / 8 >= 1)
    {
        const int64_t samples = reader->GetDataSize() / 8;
        const int64_t channelCount = reader->GetChannels();
        const int64_t frames = samples / channelCount;
        if (frames > MAX_IMPULSE_FRAMES)
        {
            Note(0, QVString::Format(u"\"%s\" has %d frames at %d Hz, more than the %d an "
                                     u"impulse may have",
                                     name, frames, static_cast<int32_t>(rate), MAX_IMPULSE_FRAMES));
        }
        else
        {
            file = std::make_unique<CFilterFile>();
            file->name = name;
            file->gain = gain;
            file->channels = static_cast<int32_t>(channelCount);
            file->samples.assign(static_cast<size_t>(frames * channelCount), 0.0);
            int64_t bytes = 0;
            const int64_t read = reader->Read(file->samples.data(), 0, frames, &bytes, false);
            if (read < 0 || read < frames * channelCount * 8 || frames == 0)
                file.reset();
        }
    }
    reader->Close();
    QVFileSystem::DeleteFile(output);
    return file.release();
}

bool CAudioConvolution::BuildPathFilter(CPath& path, const CFilterFile& file, int32_t fileChannel,
                                        double gain, int32_t delayFrames)
{
    const int32_t stride = file.channels;
    int64_t length = static_cast<int64_t>(file.samples.size()) / stride;
    // Trailing silence costs partitions and adds nothing; NaN is not silence.
    while (length > 0 &&
           file.samples[static_cast<size_t>((length - 1) * stride + fileChannel)] == 0.0)
        --length;
    const int64_t total = length + delayFrames;
    const int32_t half = fftSize / 2;
    const int64_t partitions = (total + half - 1) / half;
    if (partitions <= 0 || partitions > INT32_MAX / (half + 1))
        return false;

    std::vector<double> impulse(static_cast<size_t>(total), 0.0);
    for (int64_t j = delayFrames; j < total; ++j)
        impulse[static_cast<size_t>(j)] =
            gain * file.samples[static_cast<size_t>((j - delayFrames) * stride + fileChannel)];
    double peak = 0.0;
    path.peakPosition = 0;
    for (int64_t j = 0; j < total; ++j)
    {
        const double magnitude = std::fabs(impulse[static_cast<size_t>(j)]);
        if (magnitude > peak)
        {
            peak = magnitude;
            path.peakPosition = static_cast<int32_t>(j);
        }
    }

    const std::vector<CPartitionLevel> layout = LayoutPartitions(total, half);
    const int32_t headPartitions = layout.front().count;
    const int32_t points = SpectrumPoints();
    path.stride = points;
    path.partitions = static_cast<int32_t>(partitions);
    path.filterSize = headPartitions * points;
    path.filter.Resize(path.filterSize);
    path.fileName = file.name;
    path.fileChannel = fileChannel;
    path.delayFrames = delayFrames;

    // Each run of N/2 frames fills the first half of a window whose second
    // half stays zero: the product with a window spectrum is then a linear,
    // not circular, convolution over the half that is kept.
    for (int64_t partition = 0; partition < headPartitions; ++partition)
    {
        scratchWindow.Clear();
        const int64_t first = partition * half;
        const int64_t last = std::min<int64_t>(first + half, total);
        std::copy(impulse.begin() + first, impulse.begin() + last, scratchWindow.Data());
        if (forwardPlan != nullptr && path.filter.Data() != nullptr)
            fftw_execute_dft_r2c(
                forwardPlan, scratchWindow.Data(),
                reinterpret_cast<fftw_complex*>(path.filter.Data() + partition * points));
    }
    path.tail.reset();
    if (layout.size() > 1)
    {
        path.tail = std::make_unique<CConvolutionTail>();
        if (!BuildTailTransforms(layout) || !path.tail->Build(impulse, layout, TailContext()))
            return false;
    }
    return true;
}
