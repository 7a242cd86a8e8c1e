// A kelvane-sim process for integration tests: started on a free loopback port, controllable
// through its "sim." methods, killable and restartable to play a controller that dies and
// comes back, and stopped when the object goes away.
#pragma once

#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kelvane {
class RPCClientWrapper;
}

namespace kelvane::testing {

class SimulatorProcess {
public:
    // Starts the simulator on a free loopback port with `--quiet` and `extraArgs`, and waits for
    // its "listening on" line; throws std::runtime_error with a readable text when it cannot.
    explicit SimulatorProcess(std::vector<std::string> extraArgs = {},
                              std::string executable = KELVANE_SIM_PATH);
    ~SimulatorProcess();

    SimulatorProcess(const SimulatorProcess&) = delete;
    SimulatorProcess& operator=(const SimulatorProcess&) = delete;

    std::uint32_t port() const { return port_; }
    std::string endpoint() const;  // "tcp://127.0.0.1:<port>"

    // A call to the simulator (usually a "sim." method) through a client of this object's own.
    // With no error slot, an error or a missing reply is reported as a test failure.
    Value control(const std::string& method, const Value& params = Value::array(),
                  RpcErrorSlot error = nullptr);

    // SIGKILL: the controller vanishes without closing its connections.
    void kill();
    // Starts a fresh simulator on the same port (after kill(), or replacing a running one).
    void restart();

private:
    void start(const std::string& bindEndpoint);
    void stop();

    std::string executable_;
    std::vector<std::string> extraArgs_;
    pid_t pid_ = -1;
    std::uint32_t port_ = 0;
    std::shared_ptr<RPCClientWrapper> controlClient_;
};

}  // namespace kelvane::testing
