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

// fork + exec rather than posix_spawn so the child can ask to be ended with the test process:
// a crashed test must not leave simulators running. Returns the pid and the child's stdout.
std::pair<pid_t, int> spawn(const std::string& executable, const std::vector<std::string>& args) {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) throw std::runtime_error("kelvane-sim: no pipe");
    std::vector<char*> argv{const_cast<char*>(executable.c_str())};
    for (const auto& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    pid_t pid = ::fork();
    if (pid == 0) {  // only async-signal-safe calls until exec
#ifdef __linux__
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);  // a test that crashes takes its simulator along
#endif
        ::dup2(pipeFds[1], STDOUT_FILENO);
        ::execv(executable.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(pipeFds[1]);
    if (pid < 0) {
        ::close(pipeFds[0]);
        throw std::runtime_error("kelvane-sim: fork failed");
    }
    return {pid, pipeFds[0]};
}

// The first line the child writes; empty when it exits or stays silent until the deadline.
std::string readFirstLine(int fd) {
    auto deadline = Clock::now() + startDeadline;
    std::string line;
    while (line.find('\n') == std::string::npos) {
        auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return "";
        pollfd item{fd, POLLIN, 0};
        if (::poll(&item, 1, static_cast<int>(left)) <= 0) continue;
        char buffer[256];
        auto got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return "";  // the child closed its stdout: it has exited
        line.append(buffer, static_cast<std::size_t>(got));
    }
    return line.substr(0, line.find('\n'));
}

std::uint32_t portOf(const std::string& line) {
    auto colon = line.rfind(':');
    return colon == std::string::npos
               ? 0
               : static_cast<std::uint32_t>(std::strtoul(line.c_str() + colon + 1, nullptr, 10));
}

}  // namespace

SimulatorProcess::SimulatorProcess(std::vector<std::string> extraArgs, std::string executable)
    : executable_(std::move(executable)), extraArgs_(std::move(extraArgs)) {
    if (::access(executable_.c_str(), X_OK) != 0) {
        throw std::runtime_error("kelvane-sim not found or not executable at " + executable_ +
                                 " (build the kelvane-sim target)");
    }
    start("tcp://127.0.0.1:*");
}

SimulatorProcess::~SimulatorProcess() { stop(); }

std::string SimulatorProcess::endpoint() const {
    return "tcp://127.0.0.1:" + std::to_string(port_);
}

void SimulatorProcess::start(const std::string& bindEndpoint) {
    std::vector<std::string> args = {"--bind", bindEndpoint, "--quiet"};
    args.insert(args.end(), extraArgs_.begin(), extraArgs_.end());
    auto [pid, output] = spawn(executable_, args);
    pid_ = pid;
    std::string line = readFirstLine(output);
    ::close(output);
    if (!line.starts_with(listeningPrefix) || portOf(line) == 0) {
        stop();
        throw std::runtime_error("kelvane-sim at " + executable_ + " did not start" +
                                 (line.empty() ? "" : "; it printed: " + line));
    }
    port_ = portOf(line);
    controlClient_ = RPCClientWrapper::initWithIP("127.0.0.1", port_);
}

void SimulatorProcess::stop() {
    controlClient_.reset();
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    for (auto deadline = Clock::now() + stopGrace; Clock::now() < deadline;) {
        if (::waitpid(pid_, nullptr, WNOHANG) != 0) return void(pid_ = -1);  // gone, or not ours
        std::this_thread::sleep_for(milliseconds(10));
    }
    kill();
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
    for (int attempt = 1;; ++attempt) {
        try {
            return start(endpoint());
        } catch (const std::runtime_error&) {
            if (attempt == restartAttempts) throw;
            std::this_thread::sleep_for(restartPause);
        }
    }
}

Value SimulatorProcess::control(const std::string& method, const Value& params, RpcErrorSlot error) {
    std::optional<RpcError> failure;
    Value reply = nullptr;
    if (controlClient_) reply = controlClient_->call(method, params, nullptr, &failure);
    else failure = RpcError{0, "kelvane-sim is not running"};
    if (error) *error = failure;
    else if (failure) ADD_FAILURE() << "control(" << method << ") failed: " << failure->text();
    return reply;
}

}  // namespace kelvane::testing
