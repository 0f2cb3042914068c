// How every part of qvdsp ends a command that cannot go on: an exit code and a
// message, shared by the host's parts and the commands alike.
#pragma once

#include <stdexcept>
#include <string>

// Exit codes of every command.
enum CliExitCode : int
{
    CLI_EXIT_DONE = 0,
    CLI_EXIT_FAILED = 1,
    CLI_EXIT_USAGE = 2,
};

// A command that cannot go on throws this; main prints "qvdsp: <message>" on
// standard error and exits with the code.
class CliError : public std::runtime_error
{
public:
    CliError(int exitCode, const std::string& message)
        : std::runtime_error(message), exitCode(exitCode)
    {
    }
    int ExitCode() const { return exitCode; }

private:
    int exitCode;
};
