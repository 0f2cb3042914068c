#pragma once

// The settings file of a build without the host: one JSON document that
// every process of the user shares. Readers see either the old or the new
// file, never a mixture, because writers replace it by rename. Writers
// serialise on an advisory lock and re-read the file under it, so two
// processes that change different values both keep theirs.
//
// Inside a CSettingsTransaction the file is locked at its first access and
// read once; every read and write of the transaction then works on that one
// document, which is written once at the end. A read-modify-write of a list
// inside a transaction therefore cannot lose another process's change.

#include <cstddef>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

class CSettingsFile
{
public:
    explicit CSettingsFile(std::string path);

    const std::string& GetPath() const { return path; }

    // The document as it is on disk. A missing file is an empty object and
    // counts as readable. A file that cannot be read or parsed, or whose
    // shape is not a settings document, gives an empty object and false,
    // with the reason in problem when one is asked for.
    bool Read(nlohmann::json& document, std::string* problem = nullptr) const;
    // Like Read, without a copy: look sees the document for the time of the call.
    bool Inspect(const std::function<void(const nlohmann::json&)>& look) const;

    // Applies change to the current document under the lock and replaces the
    // file if change answers true (at the end of the open transaction, if
    // there is one). Fails, leaving the file alone, when the file on disk is
    // not a readable settings document, and when the new file cannot be
    // written completely. Failures are logged with the path and left in
    // LastProblem.
    bool Update(const std::function<bool(nlohmann::json&)>& change);

    // The reason of the latest failure of a read or write, naming the file,
    // for messages to the user.
    static std::string LastProblem();

    // The text written to disk: indented, members sorted, so that two saves
    // differ only where a value changed.
    static std::string Serialize(const nlohmann::json& document);

    // Whether a parsed document has the shape this store writes. Anything
    // else is somebody's data we do not understand and must not replace.
    static bool IsSettingsDocument(const nlohmann::json& document);

    // The file in use: $QVDSP_SETTINGS (which the --settings option of qvdsp
    // sets), else $XDG_CONFIG_HOME/quovan/dsp-settings.json, with ~/.config
    // standing in for an unset XDG_CONFIG_HOME. Looked up at every use.
    static std::string DefaultPath();

    // Files larger than this are refused as broken: a settings file never
    // grows so large, and a path such as a device could be read forever.
    static constexpr size_t kMaxFileBytes = size_t{256} << 20;
    // Arrays and objects nested deeper than this are refused as broken. The
    // store itself writes four levels; the cap leaves room for hand-written
    // values while keeping the serializer's recursion far from the stack's end.
    static constexpr int kMaxNesting = 256;

private:
    std::string path;
};

// Logs a failure of the settings store under the heading given.
void ReportSettingsProblem(const char16_t* heading, const std::string& message);
