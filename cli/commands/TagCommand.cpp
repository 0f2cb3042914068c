// qvdsp tag: shows and edits the tags inside WAV, RF64 and AIFF files.
// A change that keeps the tag's length overwrites the tag's own bytes; any
// other change is made on a copy beside the file, which then takes the
// file's place, so that an interrupted run never leaves a half-moved file.
#include "cli/commands/Commands.h"

#include "audiofile/CafInfo.h"
#include "audiofile/IFFInfo.h"
#include "audiofile/Wave64Info.h"
#include "core/QVFileSystem.h"
#include "frame/SiblingModules.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace
{

struct TagOptions
{
    std::string file;
    std::string get;
    std::vector<std::string> sets;
    bool remove = false;
    std::string image;
    bool json = false;
};

// One change: a field and its new text (empty removes it).
struct FieldChange
{
    QVString name;
    QVString value;
};

std::string Printable(QVString text)
{
    text.Replace(u"\r\n", u"\n");
    return text.ToUTF8();
}

std::unique_ptr<CIFFInfo> OpenForReading(const std::string& file)
{
    const QVString name = QVString::FromUTF8(file);
    std::unique_ptr<CIFFInfo> reader = CIFFInfo::CreateForFileName(name);
    if (reader->OpenFile(name, false, true) == 0)
        return reader;
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        throw CliError(CLI_EXIT_FAILED, file + ": " + std::strerror(errno));
    ::close(descriptor);
    throw CliError(CLI_EXIT_FAILED, file + ": not a file that " + reader->GetReaderName() +
                                        " reads (no format or no sample data found)");
}

// Why a file that opened cannot take tags.
std::string WhyNoTags(CIFFInfo& reader)
{
    if (dynamic_cast<CWave64Info*>(&reader) != nullptr)
        return "Wave64 files never get tags written";
    if (dynamic_cast<CCafInfo*>(&reader) != nullptr)
        return "CAF files never get tags written";
    if (reader.GetTagChunkID().IsEmpty())
        return "this kind of file has no place for a tag";
    if (!reader.IsBelow2GB())
        return "files with 2 GiB of audio data or more never get tags written";
    return "writing tags is turned off by the setting \"DoNotWriteTagsToFiles\" under "
           "\"Plugins\\Input\\WAV\"";
}

// Every field of the tag's table that has a value, in table order, then the
// user text frames that no row of the table reads, by their own names.
std::vector<std::pair<std::string, std::string>> FieldsWithValues(CIFFInfo& reader)
{
    std::vector<std::pair<std::string, std::string>> fields;
    const CID3v2Tag& tag = reader.GetID3v2Tag();
    std::vector<QVString> names = tag.GetFieldNames();
    for (int32_t i = 0; i < tag.GetFrameCount(); ++i)
    {
        const CID3v2Frame& frame = tag.GetFrame(i);
        const QVString description = frame.Properties.GetString(u"Description"_qv);
        if (frame.Kind != ID3KIND_USER_TEXT || description.IsEmpty())
            continue;
        bool read = false;
        for (const CID3v2Field& row : tag.GetFieldTable())
            read = read || (row.IsFrame("TXXX") && row.Description.CompareNoCase(description) == 0);
        if (!read && std::find(names.begin(), names.end(), description) == names.end())
            names.push_back(description);
    }
    for (const QVString& name : names)
    {
        QVString value;
        if (reader.GetTag(name, value))
            fields.emplace_back(name.ToUTF8(), Printable(value));
    }
    return fields;
}

void PrintListing(CIFFInfo& reader, const std::string& file, bool json)
{
    const auto fields = FieldsWithValues(reader);
    const CID3v2Tag& tag = reader.GetID3v2Tag();
    if (json)
    {
        nlohmann::json frames = nlohmann::json::array();
        for (int32_t i = 0; i < tag.GetFrameCount(); ++i)
            frames.push_back(tag.GetFrameText(i).ToUTF8());
        nlohmann::json values = nlohmann::json::object();
        for (const auto& [name, value] : fields)
            values[name] = value;
        nlohmann::json object = {{"file", file},
                                 {"tag", tag.IsPresent()},
                                 {"version", tag.IsPresent() ? tag.GetMajorVersion() : 0},
                                 {"size", tag.GetSize()},
                                 {"frames", frames},
                                 {"fields", values},
                                 {"canWrite", reader.CanWriteTags()}};
        std::cout << object.dump(2) << '\n';
        return;
    }
    std::cout << Printable(reader.GetTagText());
    for (const auto& [name, value] : fields)
        std::cout << name << ": " << value << '\n';
}

std::vector<FieldChange> ChangesOf(const TagOptions& options)
{
    std::vector<FieldChange> changes;
    for (const std::string& set : options.sets)
    {
        const size_t equals = set.find('=');
        if (equals == std::string::npos || equals == 0)
            throw CliError(CLI_EXIT_USAGE, "--set wants NAME=VALUE, not '" + set + "'");
        changes.push_back({QVString::FromUTF8(set.substr(0, equals)),
                           QVString::FromUTF8(set.substr(equals + 1))});
    }
    if (!options.image.empty())
    {
        std::error_code error;
        const std::filesystem::path picture = std::filesystem::absolute(options.image, error);
        if (!std::filesystem::is_regular_file(picture, error))
            throw CliError(CLI_EXIT_FAILED, options.image + ": no such picture file");
        changes.push_back({QVString(u"Image File"), QVString::FromUTF8(picture.string())});
    }
    return changes;
}

void ApplyChanges(CIFFInfo& reader, const std::vector<FieldChange>& changes,
                  const std::string& file)
{
    for (const FieldChange& change : changes)
    {
        if (!reader.SetTag(change.name, change.value))
            throw CliError(CLI_EXIT_FAILED, file + ": the field \"" + change.name.ToUTF8() +
                                                "\" cannot be set to '" + change.value.ToUTF8() +
                                                "' in this tag");
    }
}

// Opens `path` for writing tags, makes the changes and saves them.
bool SaveChanges(const std::string& path, const std::vector<FieldChange>& changes, bool remove,
                 const std::string& file)
{
    const QVString name = QVString::FromUTF8(path);
    std::unique_ptr<CIFFInfo> writer = CIFFInfo::CreateForFileName(name);
    if (writer->OpenFileForTags(name, false) != 0)
        return false;
    ApplyChanges(*writer, changes, file);
    const bool saved = writer->SaveTags(remove);
    writer->Close();
    return saved;
}

// The rewrite on a copy beside the file, put in its place when whole.
void SaveThroughCopy(const std::string& file, const std::vector<FieldChange>& changes, bool remove)
{
    const std::filesystem::path target(file);
    const QVString copyName = QVFileSystem::MakeUniqueName(QVString::FromUTF8(
        (target.parent_path() / ("." + target.filename().string() + ".qvdsp-tag")).string()));
    const std::string copy = copyName.ToUTF8();
    std::error_code error;
    if (!std::filesystem::copy_file(target, copy, error))
        throw CliError(CLI_EXIT_FAILED, file + ": cannot make a copy beside it (" +
                                            error.message() + "); nothing was changed");
    bool saved = false;
    try
    {
        saved = SaveChanges(copy, changes, remove, file);
    }
    catch (...)
    {
        std::filesystem::remove(copy, error);
        throw;
    }
    if (!saved)
    {
        std::filesystem::remove(copy, error);
        throw CliError(CLI_EXIT_FAILED, file + ": the tags could not be written (" +
                                            std::strerror(errno) + "); nothing was changed");
    }
    if (!QVFileSystem::SafeReplaceFile(QVString::FromUTF8(file), copyName))
    {
        std::filesystem::remove(copy, error);
        throw CliError(CLI_EXIT_FAILED,
                       file + ": the rewritten file could not take its place; nothing was changed");
    }
}

void RunTag(const TagOptions& options)
{
    if (options.remove && (!options.sets.empty() || !options.image.empty()))
        throw CliError(CLI_EXIT_USAGE, "--remove cannot be combined with --set or --image");
    if (!options.get.empty() && (options.remove || !options.sets.empty() || !options.image.empty()))
        throw CliError(CLI_EXIT_USAGE, "--get only reads; it cannot be combined with changes");
    EnsureToolsReady(QVString(u"qvdsp"), false);
    const std::vector<FieldChange> changes = ChangesOf(options);
    std::unique_ptr<CIFFInfo> reader = OpenForReading(options.file);

    if (!options.get.empty())
    {
        QVString value;
        if (!reader->GetTag(QVString::FromUTF8(options.get), value))
            throw CliError(CLI_EXIT_FAILED,
                           options.file + ": the field \"" + options.get + "\" has no value");
        std::cout << Printable(value) << '\n';
        return;
    }
    if (changes.empty() && !options.remove)
    {
        PrintListing(*reader, options.file, options.json);
        return;
    }
    if (!reader->CanWriteTags())
        throw CliError(CLI_EXIT_FAILED, options.file + ": cannot take tags: " + WhyNoTags(*reader) +
                                            "; nothing was changed");
    // The changes are made once on the file as read, to learn whether the
    // tag keeps its length; that reader never writes.
    ApplyChanges(*reader, changes, options.file);
    const bool inPlace = reader->TagSaveTouchesOnlyTagBytes(options.remove);
    reader->Close();
    if (inPlace)
    {
        if (!SaveChanges(options.file, changes, options.remove, options.file))
            throw CliError(CLI_EXIT_FAILED, options.file + ": the tag could not be written (" +
                                                std::strerror(errno) + ")");
        std::cout << options.file << ": tag saved in place\n";
        return;
    }
    SaveThroughCopy(options.file, changes, options.remove);
    std::cout << options.file << (options.remove ? ": tag removed\n" : ": tag saved\n");
}

}  // namespace

void AddTagCommand(CLI::App& app, CliContext& context)
{
    CLI::App* command =
        app.add_subcommand("tag", "Show or change the ID3v2 tag inside a WAV, RF64 or AIFF file");
    auto options = std::make_shared<TagOptions>();
    command->add_option("FILE", options->file, "Audio file")->required();
    command->add_option("--get", options->get,
                        "Print the value of one field (\"Name\", \"Artist\", ...); exit code 1 "
                        "when it has none");
    command->add_option("--set", options->sets,
                        "Set a field: NAME=VALUE (repeatable; an empty VALUE removes the field; "
                        "all changes are saved at once)");
    command->add_flag("--remove", options->remove, "Remove the whole tag");
    command->add_option("--image", options->image, "Set the picture (\"Image File\") from a file");
    command->add_flag("--json", options->json, "The listing as JSON");
    AddSharedOptions(*command, context);
    SetCommandAction(*command, context, [options] { RunTag(*options); });
}
