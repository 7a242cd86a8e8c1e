#include "simulator_process.hpp"

#include "rpc/rpc_client_wrapper.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace kelvane::testing {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds stopGrace{2000};
// A port just given up by a killed simulator may take a moment before it can be bound again.
constexpr int restartAttempts = 20;
constexpr milliseconds restartPause{100};

// fork + exec rather than posix_spawn so the child can ask to be ended with the test process:
// a crashed test must not leave simulators running. Returns the pid and the child's stdout.
std::pair<pid_t, int> spawn(const std::string& executable, const std::vector<std::string>& args) {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) throw std::runtime_error("kelvane-sim: no pipe");
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
        throw std::runtime_error("kelvane-sim: fork failed");
    }
    return {pid, pipeFds[0]};
}

// The first `count` lines the child writes; fewer when it exits first. (One that neither
// prints nor exits is ended with the test by ctest's timeout.)
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

}  // namespace

SimulatorProcess::SimulatorProcess(std::vector<std::string> extraArgs, std::string executable)
    : executable_(std::move(executable)), extraArgs_(std::move(extraArgs)) {
    start("tcp://127.0.0.1:*", 1);
}

SimulatorProcess::SimulatorProcess(SimulatedStation station, std::vector<std::string> extraArgs)
    : executable_(KELVANE_SIM_PATH), extraArgs_(std::move(extraArgs)) {
    start("tcp://127.0.1.1:*", station.fixtures);
}

SimulatorProcess::~SimulatorProcess() { stop(); }

std::string SimulatorProcess::endpoint(int fixture) const {
    return "tcp://" + address(fixture) + ":" + std::to_string(port(fixture));
}

void SimulatorProcess::start(const std::string& bindEndpoint, int fixtures) {
    std::vector<std::string> args = {"--bind", bindEndpoint, "--fixtures", std::to_string(fixtures), "--quiet"};
    args.insert(args.end(), extraArgs_.begin(), extraArgs_.end());
    auto [pid, output] = spawn(executable_, args);
    pid_ = pid;
    bool panel = std::find(extraArgs_.begin(), extraArgs_.end(), "--http") != extraArgs_.end();
    auto lines = readLines(output, fixtures + (panel ? 1 : 0));
    fixtures_.clear();
    if (panel && static_cast<int>(lines.size()) == fixtures + 1) {
        std::sscanf(lines.back().c_str(), "panel at http://%*[0-9.]:%d/", &panelPort_);
        lines.pop_back();
    }
    for (const auto& line : lines) {
        char address[64] = {};
        unsigned port = 0;
        if (std::sscanf(line.c_str(), "listening on tcp://%63[0-9.]:%u", address, &port) != 2 || port == 0) break;
        fixtures_.push_back({address, port, nullptr});
    }
    if (fixtureCount() != fixtures || (panel && panelPort_ <= 0)) {
        stop();
        throw std::runtime_error("kelvane-sim at " + executable_ + " did not start; it printed: " + lines.front());
    }
}

void SimulatorProcess::stop() { terminate(); }

SimulatorProcess::Ending SimulatorProcess::terminate() {
    for (auto& fixture : fixtures_) fixture.controlClient.reset();
    Ending ending;
    if (pid_ <= 0) return ending;
    auto start = Clock::now();
    ::kill(pid_, SIGTERM);
    ::kill(pid_, SIGCONT);  // a paused simulator ends too
    for (auto deadline = start + stopGrace; Clock::now() < deadline;) {
        if (::waitpid(pid_, &ending.status, WNOHANG) != 0) {  // gone, or not ours
            pid_ = -1;
            ending.took = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
            return ending;
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    kill();
    ending.took = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
    return ending;
}

void SimulatorProcess::kill() {
    for (auto& fixture : fixtures_) fixture.controlClient.reset();
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

void SimulatorProcess::pause() {
    if (pid_ > 0) ::kill(pid_, SIGSTOP);
}

void SimulatorProcess::resume() {
    if (pid_ > 0) ::kill(pid_, SIGCONT);
}

void SimulatorProcess::restart() {
    std::string previous = endpoint();
    stop();
    for (int attempt = 1;; ++attempt) {
        try {
            return start(previous, 1);
        } catch (const std::runtime_error&) {
            if (attempt == restartAttempts) throw;
            std::this_thread::sleep_for(restartPause);
        }
    }
}

Value SimulatorProcess::control(int fixture, std::string_view method, const Value& params, RpcErrorSlot error) {
    std::optional<RpcError> failure;
    Value reply = nullptr;
    if (pid_ > 0) {
        auto& client = fixtures_.at(fixture - 1).controlClient;
        if (!client) client = RPCClientWrapper::initWithIP(address(fixture), port(fixture));
        reply = client->call(std::string(method), params, nullptr, &failure);
    } else {
        failure = RpcError{0, "kelvane-sim is not running"};
    }
    if (error) *error = failure;
    else if (failure) ADD_FAILURE() << "control(" << method << ") failed: " << failure->text();
    return reply;
}

}  // namespace kelvane::testing
