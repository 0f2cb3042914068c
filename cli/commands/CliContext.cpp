#include "cli/commands/Commands.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/SettingsTransaction.h"
#include "host/SettingsFile.h"

namespace
{

// Bytes of the well-formed UTF-8 sequence at i, 0 if there is none.
size_t Utf8SequenceLength(const std::string& text, size_t i)
{
    const auto lead = static_cast<unsigned char>(text[i]);
    const size_t length = lead < 0x80                   ? 1
                          : lead >= 0xc2 && lead < 0xe0 ? 2
                          : lead >= 0xe0 && lead < 0xf0 ? 3
                          : lead >= 0xf0 && lead < 0xf5 ? 4
                                                        : 0;
    if (length == 0 || i + length > text.size())
        return 0;
    for (size_t k = 1; k < length; ++k)
    {
        if ((static_cast<unsigned char>(text[i + k]) & 0xc0) != 0x80)
            return 0;
    }
    return length;
}

}  // namespace

void CliContext::ApplySharedOptions() const
{
    if (settingsFile.empty())
        return;
    // The store reads its path from the environment when it is first opened. An
    // absolute path keeps pointing at the same file whatever changes the folder.
    std::error_code error;
    std::filesystem::path path = std::filesystem::absolute(settingsFile, error);
    if (error)
        path = settingsFile;
    setenv("QVDSP_SETTINGS", path.c_str(), 1);
}

int CliContext::Run() const
{
    try
    {
        ApplySharedOptions();
        if (action)
            action();
        return CLI_EXIT_DONE;
    }
    catch (const CliError& error)
    {
        std::cerr << "qvdsp: " << error.what() << '\n';
        return error.ExitCode();
    }
    catch (const std::bad_alloc&)
    {
        std::cerr << "qvdsp: out of memory\n";
        return CLI_EXIT_FAILED;
    }
    catch (const std::exception& error)
    {
        std::cerr << "qvdsp: " << error.what() << '\n';
        return CLI_EXIT_FAILED;
    }
}

void AddSharedOptions(CLI::App& command, CliContext& context)
{
    command
        .add_option("--zone", context.zone,
                    "Player zone of the plug-ins' settings (-10000: the global branch)")
        ->capture_default_str();
    command.add_option(
        "--settings", context.settingsFile,
        "Settings file (default: $QVDSP_SETTINGS, else $XDG_CONFIG_HOME/quovan/dsp-settings.json)");
}

CLI::App* AddSubcommandWithSharedOptions(CLI::App& parent, CliContext& context,
                                         const std::string& name, const std::string& description)
{
    CLI::App* command = parent.add_subcommand(name, description);
    AddSharedOptions(*command, context);
    return command;
}

void SetCommandAction(CLI::App& command, CliContext& context, std::function<void()> action)
{
    command.callback([&context, action = std::move(action)] { context.action = action; });
}

void SetSettingsCommandAction(CLI::App& command, CliContext& context, std::function<void()> action)
{
    SetCommandAction(command, context,
                     [action = std::move(action)]
                     {
                         CSettingsTransaction transaction;
                         action();
                         if (!transaction.Commit())
                             throw CliError(CLI_EXIT_FAILED, transaction.GetProblem());
                     });
}

std::string SettingsWriteProblem()
{
    const std::string problem = CSettingsFile::LastProblem();
    return problem.empty() ? "cannot write the settings to " + CSettingsFile::DefaultPath()
                           : problem;
}

// The store's lenient reading would take "0x3E8" as 0 and "nan" as whatever
// its first letters give, so neither may pass as a number.
bool IsDecimalText(const std::string& text, bool integer)
{
    size_t i = text.empty() || (text[0] != '-' && text[0] != '+') ? 0 : 1;
    size_t digits = 0;
    bool separator = false;
    for (; i < text.size(); ++i)
    {
        const char c = text[i];
        if (c >= '0' && c <= '9')
            ++digits;
        else if ((c == '.' || c == ',') && !separator && !integer)
            separator = true;
        else
            break;
    }
    if (digits == 0)
        return false;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E') && !integer)
    {
        ++i;
        if (i < text.size() && (text[i] == '-' || text[i] == '+'))
            ++i;
        const size_t exponentStart = i;
        while (i < text.size() && text[i] >= '0' && text[i] <= '9')
            ++i;
        if (i == exponentStart)
            return false;
    }
    return i == text.size();
}

std::optional<double> ParseDecimal(std::string text)
{
    std::replace(text.begin(), text.end(), ',', '.');
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != 0 || errno != 0 || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::string EscapeControls(const std::string& text)
{
    static constexpr char kHex[] = "0123456789abcdef";
    std::string escaped;
    for (size_t i = 0; i < text.size(); ++i)
    {
        const auto byte = static_cast<unsigned char>(text[i]);
        const size_t sequence = Utf8SequenceLength(text, i);
        if (byte >= 0x20 && byte != 0x7f && sequence > 0)
        {
            escaped.append(text, i, sequence);
            i += sequence - 1;
            continue;
        }
        escaped += "\\x";
        escaped += kHex[byte >> 4];
        escaped += kHex[byte & 15];
    }
    return escaped;
}

std::string EscapeMarkup(const std::string& text)
{
    std::string result;
    for (char c : text)
    {
        switch (c)
        {
        case '<': result += "&lt;"; break;
        case '>': result += "&gt;"; break;
        case '&': result += "&amp;"; break;
        case '"': result += "&quot;"; break;
        default: result += c;
        }
    }
    return result;
}

std::string ReadUserFile(const std::string& path, size_t limit)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        throw CliError(CLI_EXIT_FAILED, "cannot read " + path + ": " + std::strerror(errno));
    struct stat info
    {
    };
    std::string problem;
    if (::fstat(fd, &info) != 0)
        problem = std::strerror(errno);
    else if (S_ISDIR(info.st_mode))
        problem = std::strerror(EISDIR);
    else if (!S_ISREG(info.st_mode))
        problem = "not a regular file";
    std::string bytes;
    char buffer[65536];
    while (problem.empty())
    {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got == 0)
            break;
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            problem = std::strerror(errno);
        else if (bytes.size() + static_cast<size_t>(got) > limit)
            problem = "larger than " + std::to_string(limit >> 20) + " MiB";
        else
            bytes.append(buffer, static_cast<size_t>(got));
    }
    ::close(fd);
    if (!problem.empty())
        throw CliError(CLI_EXIT_FAILED, "cannot read " + path + ": " + problem);
    return bytes;
}
