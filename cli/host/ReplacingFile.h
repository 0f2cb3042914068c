// The one way qvdsp writes a file: into a new hidden file beside the target,
// then a rename over it, so that the target is either as it was or complete.
//
// The target is the file a symbolic link leads to, so that a link stays a link;
// a target the user may not write is refused, as a copy onto it would be; the
// hidden file never follows a link and never gets setuid or setgid bits. A
// terminating signal removes every hidden file that is still open.
#pragma once

#include <csignal>
#include <filesystem>
#include <string>
#include <string_view>

// Holds the terminating signals back on the calling thread while it lives. A
// handler must not run on a thread that is itself changing signal handlers:
// the cleanup handler changes one too, and under some runtimes (the address
// sanitizer's) the two calls share a lock that would never be released.
class TerminatingSignalsHeld
{
public:
    TerminatingSignalsHeld();
    ~TerminatingSignalsHeld();
    TerminatingSignalsHeld(const TerminatingSignalsHeld&) = delete;
    TerminatingSignalsHeld& operator=(const TerminatingSignalsHeld&) = delete;

private:
    sigset_t previous;
};

class ReplacingFile
{
public:
    // Throws CliError (failed) naming `target` and the reason when the folder
    // cannot take the file or the target may not be replaced.
    explicit ReplacingFile(const std::filesystem::path& target);
    // Removes the hidden file unless Commit has renamed it.
    ~ReplacingFile();
    ReplacingFile(const ReplacingFile&) = delete;
    ReplacingFile& operator=(const ReplacingFile&) = delete;

    // Open for writing, positioned at the start; valid until Commit.
    int Descriptor() const { return descriptor; }
    const std::filesystem::path& TemporaryPath() const { return temporaryPath; }
    // Where the rename goes: the target with its links followed.
    const std::filesystem::path& ResolvedTarget() const { return resolvedTarget; }

    // Writes all of `bytes` at the current position; throws CliError on failure.
    void Write(std::string_view bytes);
    // Closes the file and renames it over the target; throws CliError.
    void Commit();

private:
    void Discard();
    [[noreturn]] void Fail(const std::string& reason);

    std::filesystem::path target;
    std::filesystem::path resolvedTarget;
    std::filesystem::path temporaryPath;
    // A copy the signal handler can read while this object lives.
    std::string temporaryName;
    int descriptor = -1;
    int pendingSlot = -1;
};

// Replaces `target` with `bytes` by the route above.
void WriteReplacingFile(const std::filesystem::path& target, std::string_view bytes);

// The hidden name for a file called `name` in a folder whose names may have
// `nameLimit` bytes: "." + name + ".XXXXXX", the name shortened (at a UTF-8
// character boundary) when the whole would not fit.
std::string TemporaryNamePattern(const std::string& name, size_t nameLimit);

// Follows symbolic links from `path` to the file they finally name, which need
// not exist; a relative link counts from the folder of the link. Throws
// CliError (failed) for a loop of links.
std::filesystem::path FollowLinks(const std::filesystem::path& path);
