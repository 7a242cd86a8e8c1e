#include "simulator_process.hpp"

#include "rpc/rpc_client_wrapper.hpp"

#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <thread>
#include <utility>

namespace kelvane::testing {
SimulatorProcess::SimulatorProcess(std::vector<std::string> extraArgs, std::string executable)
    : executable_(std::move(executable)), extraArgs_(std::move(extraArgs)) {
    start("tcp://127.0.0.1:*", 1);
}

SimulatorProcess::SimulatorProcess(SimulatedStation station, std::vector<std::string> extraArgs)
    : executable_(KELVANE_SIM_PATH), extraArgs_(std::move(extraArgs)) {
    start("tcp://127.0.1.1:*", station.fixtures);
}

SimulatorProcess::~SimulatorProcess() { terminate(); }

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
        terminate();
        throw std::runtime_error("kelvane-sim at " + executable_ + " did not start; it printed: " + lines.front());
    }
}

ProcessEnding SimulatorProcess::end(int signal) {
    for (auto& fixture : fixtures_) fixture.controlClient.reset();
    return pid_ > 0 ? endWith(std::exchange(pid_, -1), signal, std::chrono::seconds(2)) : ProcessEnding{};
}

ProcessEnding SimulatorProcess::terminate() { return end(SIGTERM); }
void SimulatorProcess::kill() { end(SIGKILL); }
void SimulatorProcess::pause() {
    if (pid_ > 0) ::kill(pid_, SIGSTOP);
}
void SimulatorProcess::resume() {
    if (pid_ > 0) ::kill(pid_, SIGCONT);
}

// A port just given up by a killed simulator may take a moment before it can be bound again.
void SimulatorProcess::restart() {
    std::string previous = endpoint();
    terminate();
    for (int attempt = 1;; std::this_thread::sleep_for(std::chrono::milliseconds(100)), ++attempt) {
        try {
            return start(previous, 1);
        } catch (const std::runtime_error&) {
            if (attempt == 20) throw;
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
    if (!error && failure) ADD_FAILURE() << "control(" << method << ") failed: " << failure->text();
    return reply;
}

}  // namespace kelvane::testing
