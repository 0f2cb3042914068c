#pragma once

// The settings file of a build without the host: one JSON document that
// every process of the user shares. Readers see either the old or the new
// file, never a mixture, because writers replace it by rename. Writers
// serialise on an advisory lock and re-read the file under it, so two
// processes that change different values both keep theirs.

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

    // Applies change to the current document under the lock and replaces the
    // file if change answers true. Fails, leaving the file alone, when the
    // file on disk is not a readable settings document, and when the new
    // file cannot be written completely. Failures are logged with the path.
    bool Update(const std::function<bool(nlohmann::json&)>& change);

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

private:
    enum class ELoad
    {
        Loaded,
        Missing,
        Failed
    };
    ELoad Load(nlohmann::json& document, std::string& problem) const;
    bool WriteReplacing(const nlohmann::json& document, std::string& problem) const;
    std::string TargetPath() const;

    std::string path;
};

// Logs a failure of the settings store under the heading given.
void ReportSettingsProblem(const char16_t* heading, const std::string& message);
