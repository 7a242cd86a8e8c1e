// kelvane-sim as a process of its own, for the benchmarks that count what their whole process
// holds or spends: one fixture on a free loopback port, ended with SIGTERM when the object goes.
#pragma once

#include "child_process.hpp"

#include <signal.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace kelvane::bench {

class SimulatorChild {
public:
    // Waits for the "listening on" line; throws std::runtime_error without.
    SimulatorChild() {
        auto [pid, output] = testing::spawn(KELVANE_SIM_PATH, {"--bind", "tcp://127.0.0.1:*", "--quiet"});
        pid_ = pid;
        const std::string line = testing::readLines(output, 1).front();
        if (std::sscanf(line.c_str(), "listening on tcp://%*[0-9.]:%u", &port_) != 1 || port_ == 0) {
            testing::endWith(pid_, SIGKILL, std::chrono::seconds(1));
            throw std::runtime_error("kelvane-sim at " KELVANE_SIM_PATH " did not start; it printed: " + line);
        }
    }
    ~SimulatorChild() { testing::endWith(pid_, SIGTERM, std::chrono::seconds(2)); }
    SimulatorChild(const SimulatorChild&) = delete;
    SimulatorChild& operator=(const SimulatorChild&) = delete;

    std::uint32_t port() const { return port_; }

private:
    pid_t pid_ = -1;
    unsigned port_ = 0;
};

}  // namespace kelvane::bench
