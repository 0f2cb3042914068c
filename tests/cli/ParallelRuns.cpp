#include "ParallelRuns.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace clitest
{

pid_t StartQvdsp(const std::vector<std::string>& arguments)
{
    const pid_t child = ::fork();
    if (child == 0)
    {
        const int nothing = ::open("/dev/null", O_WRONLY);
        ::dup2(nothing, STDOUT_FILENO);
        ::dup2(nothing, STDERR_FILENO);
        std::vector<char*> argv{const_cast<char*>(QVDSP_CLI_PATH)};
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        ::execv(QVDSP_CLI_PATH, argv.data());
        ::_exit(127);
    }
    return child;
}

int WaitQvdsp(pid_t process)
{
    int status = 0;
    if (::waitpid(process, &status, 0) != process)
        return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::vector<int> RunQvdspInParallel(const std::vector<std::vector<std::string>>& commands)
{
    std::vector<pid_t> started;
    for (const std::vector<std::string>& command : commands)
        started.push_back(StartQvdsp(command));
    std::vector<int> results;
    for (pid_t process : started)
        results.push_back(WaitQvdsp(process));
    return results;
}

}  // namespace clitest
