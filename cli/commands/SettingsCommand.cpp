// qvdsp settings: looks at and edits the settings file that the plug-ins use,
// the way the host's own settings editor would.
#include "cli/commands/Commands.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <limits>
#include <memory>

#include "host/SettingsStore.h"

namespace
{

struct SettingsArguments
{
    std::string key;
    std::string name;
    std::string value;
    bool asInt = false;
    bool asHex = false;
    bool system = false;
};

std::vector<uint8_t> ParseHex(const std::string& text)
{
    std::vector<uint8_t> bytes;
    int high = -1;
    for (char c : text)
    {
        if (c == ' ' || c == ':' || c == '-')
            continue;  // separators people paste
        const int digit = SettingsHexDigit(c);
        if (digit < 0)
            throw CliError(CLI_EXIT_USAGE, "'" + text + "' is not hexadecimal bytes");
        if (high < 0)
        {
            high = digit;
        }
        else
        {
            bytes.push_back(static_cast<uint8_t>(high * 16 + digit));
            high = -1;
        }
    }
    if (high >= 0)
        throw CliError(CLI_EXIT_USAGE, "'" + text + "' has an odd number of hexadecimal digits");
    return bytes;
}

int32_t ParseInt(const std::string& text)
{
    size_t used = 0;
    long long value = 0;
    try
    {
        value = std::stoll(text, &used, 0);  // decimal, or 0x... for hexadecimal
    }
    catch (const std::exception&)
    {
        used = 0;
    }
    if (used != text.size() || used == 0 || value < std::numeric_limits<int32_t>::min() ||
        value > std::numeric_limits<uint32_t>::max())
        throw CliError(CLI_EXIT_USAGE, "'" + text + "' is not a 32-bit integer");
    return static_cast<int32_t>(static_cast<uint32_t>(value));  // 0xFFFFFFFF is the word -1
}

struct StoredValue
{
    std::string type;
    std::string text;
};

const char* JsonTypeName(const nlohmann::json& value)
{
    switch (value.type())
    {
    case nlohmann::json::value_t::number_integer:
    case nlohmann::json::value_t::number_unsigned: return "integer";
    case nlohmann::json::value_t::number_float: return "float";
    case nlohmann::json::value_t::boolean: return "boolean";
    case nlohmann::json::value_t::string: return "string";
    case nlohmann::json::value_t::array: return "array";
    case nlohmann::json::value_t::object: return "object";
    default: return "null";
    }
}

bool FitsInt32(const nlohmann::json& value)
{
    if (value.is_number_unsigned())
        return value.get<uint64_t>() <= static_cast<uint64_t>(std::numeric_limits<int32_t>::max());
    const int64_t wide = value.get<int64_t>();
    return wide >= std::numeric_limits<int32_t>::min() &&
           wide <= std::numeric_limits<int32_t>::max();
}

std::string Dump(const nlohmann::json& value)
{
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

class SettingsSession
{
public:
    SettingsSession(const SettingsArguments& arguments)
        : path(CSettingsFile::DefaultPath()),
          key(path, NormalizeSettingsPath(arguments.key, true), arguments.system)
    {
    }

    // Reads that find an unreadable file would quietly show defaults; here the
    // user asked to see the file, so say what is wrong with it.
    void RequireReadable() const
    {
        nlohmann::json document;
        std::string problem;
        if (!CSettingsFile(path).Read(document, &problem))
            throw CliError(CLI_EXIT_FAILED, problem);
    }

    void RequireWritten(bool written) const
    {
        if (!written)
            throw CliError(CLI_EXIT_FAILED, SettingsWriteProblem());
    }

    // Every value the file holds, with its type: the store's own three, and
    // whatever else a hand-edited file may hold, shown as JSON.
    StoredValue Value(const QVString& name, int32_t zone)
    {
        const QVString stored = zone != 0 ? QVSettingsZoneValueName(name, zone) : name;
        const std::optional<nlohmann::json> raw = key.ReadRawValue(stored);
        if (!raw)
            throw CliError(CLI_EXIT_FAILED, "no value '" + EscapeControls(stored.ToUTF8()) +
                                                "' in key '" + key.GetKeyPath() + "'");
        switch (key.GetValueType(stored.c_str()))
        {
        case SETTINGS_TYPE_INT:
            if (!raw->is_number_integer() || FitsInt32(*raw))
                return {"int", std::to_string(key.ReadInt(stored.c_str(), 0, 0))};
            break;  // an integer too wide for the store's 32 bits
        case SETTINGS_TYPE_STRING:
            if (raw->is_string())
                return {"string", EscapeControls(raw->get<std::string>())};
            break;
        case SETTINGS_TYPE_BINARY:
        {
            QVDllBuffer buffer;
            if (key.ReadBinary(stored.c_str(), &buffer, 0))
                return {"binary",
                        SettingsHexOf(buffer.GetBytes().data(), buffer.GetBytes().size())};
            break;
        }
        default: break;
        }
        return {JsonTypeName(*raw), EscapeControls(Dump(*raw))};
    }

    const std::string path;
    CFileSettingsKey key;
};

void List(const SettingsArguments& arguments)
{
    SettingsSession session(arguments);
    session.RequireReadable();
    for (const QVString& subkey : QVListSubkeyNames(session.key))
        std::cout << "key\t" << EscapeControls(subkey.ToUTF8()) << '\n';
    for (const QVString& name : QVListValueNames(session.key))
    {
        const StoredValue value = session.Value(name, 0);
        std::cout << value.type << '\t' << EscapeControls(name.ToUTF8()) << '\t' << value.text
                  << '\n';
    }
}

void Get(const SettingsArguments& arguments, int32_t zone)
{
    SettingsSession session(arguments);
    session.RequireReadable();
    std::cout << session.Value(QVString::FromUTF8(arguments.name), zone).text << '\n';
}

void Set(const SettingsArguments& arguments)
{
    if (arguments.asInt && arguments.asHex)
        throw CliError(CLI_EXIT_USAGE, "--int and --hex exclude each other");
    SettingsSession session(arguments);
    const QVString name = QVString::FromUTF8(arguments.name);
    bool written;
    if (arguments.asInt)
    {
        written = session.key.WriteInt(name.c_str(), ParseInt(arguments.value));
    }
    else if (arguments.asHex)
    {
        const std::vector<uint8_t> bytes = ParseHex(arguments.value);
        written =
            session.key.WriteBinary(name.c_str(), bytes.data(), static_cast<int32_t>(bytes.size()));
    }
    else
    {
        written =
            session.key.WriteString(name.c_str(), QVString::FromUTF8(arguments.value).c_str());
    }
    session.RequireWritten(written);
}

void Delete(const SettingsArguments& arguments)
{
    SettingsSession session(arguments);
    session.RequireReadable();
    if (!arguments.name.empty())
    {
        const QVString name = QVString::FromUTF8(arguments.name);
        if (session.key.GetValueType(name.c_str()) == SETTINGS_TYPE_NONE)
            throw CliError(CLI_EXIT_FAILED, "no value '" + arguments.name + "' in key '" +
                                                session.key.GetKeyPath() + "'");
        session.RequireWritten(session.key.DeleteValue(name.c_str()));
        return;
    }
    // A key goes with its values and all keys below it, through its parent.
    const std::string& keyPath = session.key.GetKeyPath();
    if (keyPath.empty())
        throw CliError(CLI_EXIT_USAGE, "give the key to delete");
    const size_t split = keyPath.rfind('\\');
    const std::string parentPath =
        split == std::string::npos ? std::string() : keyPath.substr(0, split);
    const std::string leaf = split == std::string::npos ? keyPath : keyPath.substr(split + 1);
    CFileSettingsKey parent(session.path, parentPath, arguments.system);
    const std::vector<QVString> siblings = QVListSubkeyNames(parent);
    if (std::find(siblings.begin(), siblings.end(), QVString::FromUTF8(leaf)) == siblings.end())
        throw CliError(CLI_EXIT_FAILED, "no key '" + keyPath + "'");
    session.RequireWritten(parent.DeleteSubkey(QVString::FromUTF8(leaf).c_str()));
}

CLI::App* AddSettingsAction(CLI::App& settings, CliContext& context, const std::string& name,
                            const std::string& description, std::function<void()> action)
{
    CLI::App* command = AddSubcommandWithSharedOptions(settings, context, name, description);
    SetSettingsCommandAction(*command, context, std::move(action));
    return command;
}

void AddKeyOptions(CLI::App& command, SettingsArguments& arguments)
{
    command.add_flag("--system", arguments.system, "Use the branch of the registration keys");
}

}  // namespace

void AddSettingsCommand(CLI::App& app, CliContext& context)
{
    CLI::App* settings = app.add_subcommand(
        "settings",
        "Show and edit the settings file. KEY is a path with \"\\\" or \"/\" between its parts, "
        "for example Zones/Global/Tempo & Pitch");
    settings->require_subcommand(1);
    static SettingsArguments arguments;  // lives as long as the command line does
    arguments = SettingsArguments{};

    AddSettingsAction(*settings, context, "path", "Print the path of the settings file in use",
                      [] { std::cout << CSettingsFile::DefaultPath() << '\n'; });

    CLI::App* list = AddSettingsAction(
        *settings, context, "list",
        "List the sub-keys and the values of KEY (default: the top), with their types",
        [] { List(arguments); });
    list->add_option("KEY", arguments.key, "Key path");
    AddKeyOptions(*list, arguments);

    CLI::App* get = AddSettingsAction(
        *settings, context, "get", "Print one value; with --zone N, the value that zone N reads",
        [&context] { Get(arguments, context.zone == QVZONE_GLOBAL ? 0 : context.zone); });
    get->add_option("KEY", arguments.key, "Key path")->required();
    get->add_option("NAME", arguments.name, "Value name")->required();
    AddKeyOptions(*get, arguments);

    CLI::App* set =
        AddSettingsAction(*settings, context, "set",
                          "Write one value: text, or with --int an integer, or with --hex bytes",
                          [] { Set(arguments); });
    set->add_option("KEY", arguments.key, "Key path")->required();
    set->add_option("NAME", arguments.name, "Value name")->required();
    set->add_option("VALUE", arguments.value, "The value")->required();
    set->add_flag("--int", arguments.asInt,
                  "Store VALUE as an integer (decimal, or 0x... hexadecimal)");
    set->add_flag("--hex", arguments.asHex, "Store VALUE as binary, given as hexadecimal bytes");
    AddKeyOptions(*set, arguments);

    CLI::App* remove =
        AddSettingsAction(*settings, context, "delete",
                          "Delete the value NAME of KEY, or without NAME the key and all below it",
                          [] { Delete(arguments); });
    remove->add_option("KEY", arguments.key, "Key path")->required();
    remove->add_option("NAME", arguments.name, "Value name");
    AddKeyOptions(*remove, arguments);
}
