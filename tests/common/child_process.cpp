#include "child_process.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace kelvane::testing {

// fork + exec rather than posix_spawn so the child can ask to be ended with the test process:
// a crashed test must not leave tools running.
std::pair<pid_t, int> spawn(const std::string& executable, const std::vector<std::string>& args) {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) throw std::runtime_error(executable + ": no pipe");
    for (int fd : pipeFds) ::fcntl(fd, F_SETFD, FD_CLOEXEC);  // no other child may hold the pipe open
    std::vector<char*> argv{const_cast<char*>(executable.c_str())};
    for (const auto& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    pid_t pid = ::fork();
    if (pid == 0) {  // only async-signal-safe calls until exec
#ifdef __linux__
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
#endif
        ::dup2(pipeFds[1], STDOUT_FILENO);
        ::execv(executable.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(pipeFds[1]);
    if (pid < 0) {
        ::close(pipeFds[0]);
        throw std::runtime_error(executable + ": fork failed");
    }
    return {pid, pipeFds[0]};
}

std::vector<std::string> readLines(int fd, int count) {
    std::vector<std::string> lines;
    FILE* output = ::fdopen(fd, "r");
    char line[256];
    while (static_cast<int>(lines.size()) < count && std::fgets(line, sizeof line, output))
        lines.emplace_back(line, std::strcspn(line, "\n"));
    std::fclose(output);
    if (lines.empty()) lines.emplace_back();  // for the error message
    return lines;
}

ProcessEnding endWith(pid_t pid, int signal, std::chrono::milliseconds grace) {
    using Clock = std::chrono::steady_clock;
    ProcessEnding ending;
    const auto start = Clock::now(), deadline = start + grace;
    ::kill(pid, signal);
    ::kill(pid, SIGCONT);
    while (::waitpid(pid, &ending.status, WNOHANG) == 0) {  // not yet gone (nor not ours)
        if (Clock::now() >= deadline) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ending.took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    return ending;
}

}  // namespace kelvane::testing
