// A kelvane-sim process on a free loopback port (or a station of fixtures, fixture k at 127.0.1.k),
// controlled through its "sim." methods, killable and restartable, stopped with the object.
#pragma once

#include "child_process.hpp"

#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {
class RPCClientWrapper;
}

namespace kelvane::testing {

struct SimulatedStation {
    int fixtures = 1;
};

class SimulatorProcess {
public:
    // Waits for the "listening on" line; throws std::runtime_error with a readable text without.
    explicit SimulatorProcess(std::vector<std::string> extraArgs = {}, std::string executable = KELVANE_SIM_PATH);
    explicit SimulatorProcess(SimulatedStation station, std::vector<std::string> extraArgs = {});
    ~SimulatorProcess();

    SimulatorProcess(const SimulatorProcess&) = delete;
    SimulatorProcess& operator=(const SimulatorProcess&) = delete;

    // Fixture 1's, or with a fixture number 1 to fixtureCount() that fixture's.
    std::uint32_t port(int fixture = 1) const { return fixtures_.at(fixture - 1).port; }
    std::string address(int fixture = 1) const { return fixtures_.at(fixture - 1).address; }
    std::string endpoint(int fixture = 1) const {
        return "tcp://" + address(fixture) + ":" + std::to_string(port(fixture));
    }
    int fixtureCount() const { return static_cast<int>(fixtures_.size()); }
    // The panel's port, when started with "--http" (and 0 for a free port).
    int panelPort() const { return panelPort_; }

    // A call to fixture 1 (or `fixture`) through a client of its own; without an error slot, an
    // error fails the test.
    Value control(std::string_view method, const Value& params = Value::array(), RpcErrorSlot error = nullptr) {
        return control(1, method, params, error);
    }
    Value control(int fixture, std::string_view method, const Value& params = Value::array(),
                  RpcErrorSlot error = nullptr);

    // SIGTERM, then the wait for its end (SIGKILL after two seconds).
    ProcessEnding terminate();
    // SIGKILL: the controller vanishes without closing its connections.
    void kill();
    // SIGSTOP: the controller keeps its port and connections but answers nothing, not even
    // ZeroMQ's handshake; resume() (SIGCONT) lets it go on.
    void pause();
    void resume();
    // Starts a fresh simulator on the same port (after kill(), or replacing a running one); one
    // fixture only, as a station's fixtures each took a port of their own.
    void restart();

private:
    struct Fixture {
        std::string address;
        std::uint32_t port = 0;
        std::shared_ptr<RPCClientWrapper> controlClient;  // made on first use
    };

    void start(const std::string& bindEndpoint, int fixtures);
    ProcessEnding end(int signal);

    std::string executable_;
    std::vector<std::string> extraArgs_;
    pid_t pid_ = -1;
    std::vector<Fixture> fixtures_;
    int panelPort_ = 0;
};

}  // namespace kelvane::testing
