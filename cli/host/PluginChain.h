// The host side of the plug-in interface: the host object that qvdsp hands to
// every plug-in, the catalogue of plug-ins the module builds, and a chain that
// runs blocks through plug-ins joined by sinks.
#pragma once

#include "qvdsp/IQVDSP.h"

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

// qvdsp stands in for the player: it counts notifications and keeps the
// adaptive-volume mode that a player's level control would hold.
class CliHost final : public IQVDSPHost, public IQVDSPPlayer, public IQVDSPLevelControl
{
public:
    void NotifyChanged(bool) override { ++changeCount; }
    void NotifyTempoChanged() override { ++tempoChangeCount; }
    IQVDSPPlayer* GetPlayer() override { return this; }
    IQVDSPLevelControl* GetLevelControl() override { return this; }
    int32_t GetAdaptiveMode() override { return adaptiveMode; }
    void SetAdaptiveMode(int32_t mode) override { adaptiveMode = mode; }

    int32_t ChangeCount() const { return changeCount; }
    int32_t TempoChangeCount() const { return tempoChangeCount; }

private:
    int32_t changeCount = 0;
    int32_t tempoChangeCount = 0;
    int32_t adaptiveMode = 0;
};

struct PluginDeleter
{
    void operator()(IQVDSP* plugin) const { delete plugin; }
};
using PluginPointer = std::unique_ptr<IQVDSP, PluginDeleter>;

// One plug-in the module can build. Unlisted ones are not offered by the
// module's export but can be asked for by name or index.
struct PluginEntry
{
    int32_t index = -1;
    std::string name;
    bool listed = true;
};

// Whether plug-ins made for a command may write to the settings store. Commands
// that only run or show plug-ins make them transient, so that nothing a plug-in
// saves on its own (Effects saves when it is destroyed) touches the user's store.
enum class PluginUse
{
    ReadOnly,
    Editing
};

// Every index of the table that builds a plug-in, in index order.
std::vector<PluginEntry> ListPlugins(IQVDSPHost& host, int32_t zone, bool includeUnlisted);

// Builds the entry's plug-in; null only if the module refuses it.
PluginPointer CreatePlugin(const PluginEntry& entry, IQVDSPHost& host, int32_t zone, PluginUse use);

// The display name the plug-in reports, in UTF-8.
std::string PluginName(IQVDSP& plugin);

// Whether a file that a plug-in's settings name can be opened for reading;
// `error` gets errno when it cannot.
enum class FileAccess
{
    Readable,
    Missing,
    Folder,
    Unreadable
};
FileAccess CheckReadable(const std::string& name, int* error = nullptr);

// Why a stage that took the format still passes its audio on untouched (a
// Convolution whose filter did not load), in words; empty when it works.
std::string PassThroughReason(IQVDSP& plugin);

// Turns a --chain text (comma-separated display names in any case, or indices)
// into catalogue entries in chain order. An empty text is an empty chain.
// Throws CliError (usage) naming what it does not know.
std::vector<PluginEntry> ResolveChain(const std::string& list,
                                      const std::vector<PluginEntry>& catalog);

// Plug-ins in order; each one's sink runs the next one, the last one's sink is
// the output. The chain owns its plug-ins.
class PluginChain
{
public:
    PluginChain();
    ~PluginChain();
    PluginChain(const PluginChain&) = delete;
    PluginChain& operator=(const PluginChain&) = delete;

    void Append(PluginPointer plugin, std::string name);
    size_t Size() const { return stages.size(); }
    const std::string& Name(size_t stage) const;
    IQVDSP& Plugin(size_t stage);

    // Gives every plug-in the format; answers the names of those that returned
    // -1 and so pass the audio on unchanged. Those that took it but will not
    // work on it are told of on the notice stream, if there is one.
    std::vector<std::string> SetFormat(const CAudioFormat& format);
    // Where SetFormat tells of stages that pass the audio on untouched, and
    // why, once per format; null (the default) tells nothing.
    void SetNotices(std::ostream* stream) { notices = stream; }
    // The rate of the last SetFormat, 0 before the first.
    uint32_t SampleRate() const { return sampleRate; }
    void SetOutput(IQVDSPSink* output);
    // Runs one block through the chain. Whatever reaches the end goes to the
    // output sink, possibly in other counts than went in.
    void Push(double* samples, int32_t frames);
    // The lines the stage's plug-in adds for DSPCMD_DESCRIBE.
    std::vector<std::string> Describe(size_t stage);

private:
    class Link;
    struct Stage;
    std::vector<std::unique_ptr<Stage>> stages;
    IQVDSPSink* output = nullptr;
    std::ostream* notices = nullptr;
    uint32_t sampleRate = 0;
};

// Creates the chain's plug-ins for a --chain text.
void BuildChain(PluginChain& chain, const std::vector<PluginEntry>& entries, IQVDSPHost& host,
                int32_t zone, PluginUse use);

// Each stage's name, then the lines it adds for DSPCMD_DESCRIBE, indented, and
// its latency in frames and milliseconds where it has one (after SetFormat).
void PrintDescription(PluginChain& chain, std::ostream& out, const std::string& indent = "");
