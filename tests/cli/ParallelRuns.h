// Several qvdsp processes at once, as users and scripts start them: for the
// tests of what parallel commands and interrupted commands leave behind.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace clitest
{

// Starts the real qvdsp with `arguments`, its output thrown away.
pid_t StartQvdsp(const std::vector<std::string>& arguments);
// Waits for a started qvdsp: its exit code, or minus the signal that ended it.
int WaitQvdsp(pid_t process);
// Starts every command at once, then waits for all: their results in order.
std::vector<int> RunQvdspInParallel(const std::vector<std::vector<std::string>>& commands);

}  // namespace clitest
