// A tool started by a test as a child process: it ends with the test process (on Linux), its
// standard output is read line by line, and it is ended by a signal with its end timed.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace kelvane::testing {

// fork + exec of `executable` with `args`: the pid and the read end of its standard output.
// Throws std::runtime_error when no process can be made.
std::pair<pid_t, int> spawn(const std::string& executable, const std::vector<std::string>& args);

// The first `count` lines written to `fd` (closed then); fewer when the writer ends first, and
// one empty line for none. (A child that neither prints nor exits is ended with the test by
// ctest's timeout.)
std::vector<std::string> readLines(int fd, int count);

struct ProcessEnding {
    int status = -1;  // as waitpid gives it
    std::chrono::milliseconds took{};
};

// Sends `signal` (and SIGCONT, so that a paused process ends too) and waits for the end,
// killing the process once `grace` has passed.
ProcessEnding endWith(pid_t pid, int signal, std::chrono::milliseconds grace);

}  // namespace kelvane::testing
