#include "simulator_process.hpp"

#include "rpc/rpc_client_wrapper.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace kelvane::testing {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds startDeadline{5000};
constexpr milliseconds stopGrace{2000};
// A port just given up by a killed simulator may take a moment before it can be bound again.
constexpr int restartAttempts = 20;
constexpr milliseconds restartPause{100};
constexpr std::string_view listeningPrefix = "listening on ";
constexpr const char* anyLoopbackPort = "tcp://127.0.0.1:*";

struct Child {
    pid_t pid;
    int output;  // read end of the child's stdout
};

// fork + exec rather than posix_spawn so the child can ask to be ended with the test process:
// a crashed test must not leave simulators running.
Child spawn(const std::string& executable, const std::vector<std::string>& args) {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) throw std::runtime_error("kelvane-sim: pipe failed");
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(executable.c_str()));
    for (const auto& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);

    pid_t pid = ::fork();
    if (pid < 0) {
        ::close(pipeFds[0]);
        ::close(pipeFds[1]);
        throw std::runtime_error("kelvane-sim: fork failed");
    }
    if (pid == 0) {  // only async-signal-safe calls until exec
#ifdef __linux__
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
#endif
        ::dup2(pipeFds[1], STDOUT_FILENO);
        ::execv(executable.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(pipeFds[1]);
    return {pid, pipeFds[0]};
}

// The first line the child writes, or what went wrong.
std::string readFirstLine(int fd, Clock::time_point deadline, bool& timedOut) {
    std::string line;
    timedOut = false;
    while (line.find('\n') == std::string::npos) {
        auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            timedOut = true;
            break;
        }
        pollfd item{fd, POLLIN, 0};
        int ready = ::poll(&item, 1, static_cast<int>(left));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) continue;
        char buffer[256];
        auto got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;  // the child closed its stdout: it has exited
        line.append(buffer, static_cast<std::size_t>(got));
    }
    return line.substr(0, line.find('\n'));
}

std::uint32_t portOf(const std::string& endpoint) {
    auto colon = endpoint.rfind(':');
    if (colon == std::string::npos) return 0;
    try {
        return static_cast<std::uint32_t>(std::stoul(endpoint.substr(colon + 1)));
    } catch (const std::exception&) {
        return 0;
    }
}

std::string exitDescription(pid_t pid) {
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) != pid) return "still running";
    if (WIFEXITED(status)) {
        int code = WEXITSTATUS(status);
        return code == 127 ? "could not be executed" : "exited with status " + std::to_string(code);
    }
    if (WIFSIGNALED(status)) return "killed by signal " + std::to_string(WTERMSIG(status));
    return "ended";
}

bool waitForExit(pid_t pid, milliseconds grace) {
    auto deadline = Clock::now() + grace;
    while (Clock::now() < deadline) {
        pid_t done = ::waitpid(pid, nullptr, WNOHANG);
        if (done == pid || (done < 0 && errno == ECHILD)) return true;
        std::this_thread::sleep_for(milliseconds(10));
    }
    return false;
}

}  // namespace

SimulatorProcess::SimulatorProcess(std::vector<std::string> extraArgs, std::string executable)
    : executable_(std::move(executable)), extraArgs_(std::move(extraArgs)) {
    if (::access(executable_.c_str(), X_OK) != 0) {
        throw std::runtime_error("kelvane-sim not found or not executable at " + executable_ +
                                 " (build the kelvane-sim target)");
    }
    start(anyLoopbackPort);
}

SimulatorProcess::~SimulatorProcess() { stop(); }

std::string SimulatorProcess::endpoint() const {
    return "tcp://127.0.0.1:" + std::to_string(port_);
}

void SimulatorProcess::start(const std::string& bindEndpoint) {
    std::vector<std::string> args = {"--bind", bindEndpoint, "--quiet"};
    args.insert(args.end(), extraArgs_.begin(), extraArgs_.end());
    Child child = spawn(executable_, args);
    pid_ = child.pid;
    bool timedOut = false;
    std::string line = readFirstLine(child.output, Clock::now() + startDeadline, timedOut);
    ::close(child.output);
    if (!line.starts_with(listeningPrefix) || portOf(line) == 0) {
        std::string why = timedOut ? "did not start within " + std::to_string(startDeadline.count()) + " ms"
                                   : exitDescription(pid_);
        stop();
        throw std::runtime_error("kelvane-sim at " + executable_ + " " + why +
                                 (line.empty() ? "" : "; it printed: " + line));
    }
    port_ = portOf(line);
    controlClient_ = RPCClientWrapper::initWithIP("127.0.0.1", port_);
}

void SimulatorProcess::stop() {
    controlClient_.reset();
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    if (!waitForExit(pid_, stopGrace)) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
}

void SimulatorProcess::kill() {
    controlClient_.reset();
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

void SimulatorProcess::restart() {
    stop();
    std::string bindEndpoint = endpoint();
    for (int attempt = 1;; ++attempt) {
        try {
            start(bindEndpoint);
            return;
        } catch (const std::runtime_error&) {
            if (attempt == restartAttempts) throw;
            std::this_thread::sleep_for(restartPause);
        }
    }
}

Value SimulatorProcess::control(const std::string& method, const Value& params, RpcErrorSlot error) {
    if (!controlClient_) {
        if (error) *error = RpcError{0, "kelvane-sim is not running"};
        else ADD_FAILURE() << "control(" << method << "): kelvane-sim is not running";
        return nullptr;
    }
    std::optional<RpcError> failure;
    Value reply = controlClient_->call(method, params, nullptr, &failure);
    if (error) {
        *error = failure;
    } else if (failure) {
        ADD_FAILURE() << "control(" << method << ") failed: " << failure->text();
    }
    return reply;
}

}  // namespace kelvane::testing
