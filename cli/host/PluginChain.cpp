#include "cli/host/PluginChain.h"

#include "cli/host/CliError.h"
#include "cli/host/LatencyAlignment.h"
#include "convolution/ConvolutionPlugin.h"
#include "core/QVString.h"
#include "frame/PluginFactory.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <ostream>

namespace
{

std::string Trimmed(const std::string& text)
{
    size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return {};
    size_t last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

bool SameNameNoCase(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [](unsigned char x, unsigned char y)
                                              { return std::tolower(x) == std::tolower(y); });
}

// An entry that is all digits names an index.
bool ParseIndex(const std::string& text, int32_t* index)
{
    if (text.empty() ||
        !std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); }))
        return false;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *index);
    return error == std::errc() && end == text.data() + text.size();
}

const PluginEntry* FindEntry(const std::string& wanted, const std::vector<PluginEntry>& catalog)
{
    int32_t index = -1;
    if (ParseIndex(wanted, &index))
    {
        for (const PluginEntry& entry : catalog)
            if (entry.index == index)
                return &entry;
        return nullptr;
    }
    for (const PluginEntry& entry : catalog)
        if (SameNameNoCase(entry.name, wanted))
            return &entry;
    return nullptr;
}

// Collects what a plug-in adds for DSPCMD_DESCRIBE.
class StatusLines final : public IStatusList
{
public:
    void Add(const char16_t* text, int32_t) override { lines.push_back(QVString(text).ToUTF8()); }
    std::vector<std::string> lines;
};

std::string LatencyText(int64_t frames, uint32_t sampleRate)
{
    char text[96];
    std::snprintf(text, sizeof(text), "latency %lld frames, %.2f ms",
                  static_cast<long long>(frames),
                  1000.0 * static_cast<double>(frames) / sampleRate);
    return text;
}

// What is wrong with the filter file itself, or empty when it can be opened.
std::string FilterFileProblem(const std::string& name)
{
    int error = 0;
    switch (CheckReadable(name, &error))
    {
    case FileAccess::Missing: return "its filter \"" + name + "\" does not exist";
    case FileAccess::Folder: return "its filter \"" + name + "\" is a folder";
    case FileAccess::Unreadable:
        return "its filter \"" + name + "\" cannot be read: " + std::strerror(error);
    case FileAccess::Readable: break;
    }
    return {};
}

// The engine's own account of the load: each file it could not read and each
// block it left out, with its line in a configuration.
std::string LoadNotes(const CAudioConvolution& engine)
{
    std::string text;
    for (const CAudioConvolution::CLoadNote& note : engine.GetLoadNotes())
    {
        text += text.empty() ? "" : "; ";
        if (note.line > 0)
            text += "line " + std::to_string(note.line) + ": ";
        text += QVString(note.text).ToUTF8();
    }
    return text;
}

// The engine reads names ending in these, case sensitive, as configurations.
bool IsConfiguration(const std::string& filter)
{
    const std::string extension = std::filesystem::path(filter).extension().string();
    return extension == ".txt" || extension == ".cfg";
}

std::string ConvolutionProblem(CAudioConvolution& engine)
{
    if (engine.IsValid())
        return {};
    const std::string filter = engine.GetFilter(true).ToUTF8();
    if (filter.empty())
        return "Convolution is not valid: no filter is chosen ('qvdsp convolution set FILTER' "
               "chooses one)";
    std::string problem = FilterFileProblem(filter);
    if (problem.empty() && IsConfiguration(filter))
        problem = "its configuration \"" + filter + "\" fails: " + LoadNotes(engine);
    else if (problem.empty())
        problem = "its filter \"" + filter + "\" is not audio that can be decoded";
    return "Convolution is not valid: " + problem;
}

}  // namespace

FileAccess CheckReadable(const std::string& name, int* error)
{
    std::error_code ignored;
    const auto status = std::filesystem::status(name, ignored);
    if (!std::filesystem::exists(status))
        return FileAccess::Missing;
    if (std::filesystem::is_directory(status))
        return FileAccess::Folder;
    std::FILE* file = std::fopen(name.c_str(), "rb");
    if (file == nullptr)
    {
        if (error != nullptr)
            *error = errno;
        return FileAccess::Unreadable;
    }
    std::fclose(file);
    return FileAccess::Readable;
}

std::string PassThroughReason(IQVDSP& plugin)
{
    if (auto* convolution = dynamic_cast<CConvolutionDSPPlugin*>(&plugin))
        return ConvolutionProblem(convolution->GetConvolution());
    return {};
}

std::vector<PluginEntry> ListPlugins(IQVDSPHost& host, int32_t zone, bool includeUnlisted)
{
    std::vector<PluginEntry> entries;
    for (int32_t index = 0; index < DSPPLUGIN_COUNT; ++index)
    {
        PluginEntry entry{index, {}, true};
        PluginPointer plugin = CreatePlugin(entry, host, zone, PluginUse::ReadOnly);
        if (!plugin && includeUnlisted)
        {
            entry.listed = false;
            plugin = CreatePlugin(entry, host, zone, PluginUse::ReadOnly);
        }
        if (!plugin)
            continue;
        entry.name = PluginName(*plugin);
        entries.push_back(entry);
    }
    return entries;
}

PluginPointer CreatePlugin(const PluginEntry& entry, IQVDSPHost& host, int32_t zone, PluginUse use)
{
    PluginPointer plugin(entry.listed ? GetDSPPlugin(entry.index, &host, zone)
                                      : CreateDSPPlugin(entry.index, &host, zone, true));
    if (plugin && use == PluginUse::ReadOnly)
        plugin->SetOption(DSPOPT_TRANSIENT);
    return plugin;
}

std::string PluginName(IQVDSP& plugin)
{
    char16_t text[DSPINFO_TEXT_CAPACITY] = {};
    if (plugin.GetInfo(DSPINFO_NAME, text) != 0)
        return {};
    text[DSPINFO_TEXT_CAPACITY - 1] = 0;
    return QVString(text).ToUTF8();
}

std::vector<PluginEntry> ResolveChain(const std::string& list,
                                      const std::vector<PluginEntry>& catalog)
{
    std::vector<PluginEntry> chain;
    if (Trimmed(list).empty())
        return chain;
    size_t start = 0;
    while (start <= list.size())
    {
        size_t comma = std::min(list.find(',', start), list.size());
        std::string wanted = Trimmed(list.substr(start, comma - start));
        if (wanted.empty())
            throw CliError(CLI_EXIT_USAGE, "--chain has an empty entry in '" + list + "'");
        const PluginEntry* entry = FindEntry(wanted, catalog);
        if (!entry)
            throw CliError(CLI_EXIT_USAGE, "unknown plug-in '" + wanted +
                                               "' in --chain ('qvdsp list' shows the names)");
        chain.push_back(*entry);
        start = comma + 1;
    }
    return chain;
}

void BuildChain(PluginChain& chain, const std::vector<PluginEntry>& entries, IQVDSPHost& host,
                int32_t zone, PluginUse use)
{
    for (const PluginEntry& entry : entries)
    {
        PluginPointer plugin = CreatePlugin(entry, host, zone, use);
        if (!plugin)
            throw CliError(CLI_EXIT_FAILED,
                           "the module did not build the plug-in '" + entry.name + "'");
        chain.Append(std::move(plugin), entry.name);
    }
}

// ---------------------------------------------------------------------------

struct PluginChain::Stage
{
    PluginPointer plugin;
    std::string name;
    std::unique_ptr<Link> link;
};

// The sink behind one stage: it runs the next stage, or hands the block to the
// chain's output behind the last one.
class PluginChain::Link final : public IQVDSPSink
{
public:
    Link(PluginChain& chain, size_t stage) : chain(chain), stage(stage) {}

    void Output(double* samples, int32_t frames) override
    {
        size_t next = stage + 1;
        if (next < chain.stages.size())
            chain.stages[next]->plugin->Process(samples, frames, chain.stages[next]->link.get());
        else if (chain.output)
            chain.output->Output(samples, frames);
    }

    double GetTestLevel() override { return chain.output ? chain.output->GetTestLevel() : 1.0; }

private:
    PluginChain& chain;
    size_t stage;
};

PluginChain::PluginChain() = default;

PluginChain::~PluginChain() = default;

void PluginChain::Append(PluginPointer plugin, std::string name)
{
    auto stage = std::make_unique<Stage>();
    stage->plugin = std::move(plugin);
    stage->name = std::move(name);
    stage->link = std::make_unique<Link>(*this, stages.size());
    stages.push_back(std::move(stage));
}

const std::string& PluginChain::Name(size_t stage) const
{
    return stages[stage]->name;
}

IQVDSP& PluginChain::Plugin(size_t stage)
{
    return *stages[stage]->plugin;
}

std::vector<std::string> PluginChain::SetFormat(const CAudioFormat& format)
{
    sampleRate = format.sampleRate;
    std::vector<std::string> refused;
    for (auto& stage : stages)
    {
        if (stage->plugin->SetFormat(format) == -1)
            refused.push_back(stage->name);
        else if (notices != nullptr)
        {
            const std::string reason = PassThroughReason(*stage->plugin);
            if (!reason.empty())
                *notices << "qvdsp: " << reason << "; it passes the audio on unchanged\n";
        }
    }
    return refused;
}

void PluginChain::SetOutput(IQVDSPSink* sink)
{
    output = sink;
}

void PluginChain::Push(double* samples, int32_t frames)
{
    if (stages.empty())
    {
        if (output)
            output->Output(samples, frames);
        return;
    }
    stages.front()->plugin->Process(samples, frames, stages.front()->link.get());
}

std::vector<std::string> PluginChain::Describe(size_t stage)
{
    StatusLines status;
    stages[stage]->plugin->Command(DSPCMD_DESCRIBE, static_cast<IStatusList*>(&status), nullptr);
    return status.lines;
}

void PrintDescription(PluginChain& chain, std::ostream& out, const std::string& indent)
{
    for (size_t stage = 0; stage < chain.Size(); ++stage)
    {
        out << indent << chain.Name(stage) << '\n';
        for (const std::string& line : chain.Describe(stage))
            out << indent << "  " << line << '\n';
        int64_t latency = StageLatency(chain.Plugin(stage));
        if (latency != 0 && chain.SampleRate() > 0)
            out << indent << "  " << LatencyText(latency, chain.SampleRate()) << '\n';
    }
}
