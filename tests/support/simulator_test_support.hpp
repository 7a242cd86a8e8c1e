// A kelvane-sim process and a real client connected to it: for the tests that need the library's
// transport against a controller, and the simulator's own tests that need a process.
#pragma once

#include "call_checks.hpp"
#include "simulator_process.hpp"

#include "rpc/rpc_client_wrapper.hpp"

#include <kelvane/protocol/json_rpc.hpp>
#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/sim_methods.hpp>

#include <gtest/gtest.h>
#include <zmq.hpp>
#include <zmq_addon.hpp>

#include <chrono>
#include <functional>
#include <thread>

namespace kelvane::testing {

class SimulatorTest : public ::testing::Test, public CallChecks<SimulatorTest> {
public:
    // Through the client below, as call() and failure() are.
    std::pair<Value, std::optional<RpcError>> ask(std::string_view method, const Value& params = Value::array(),
                                                  const Value& kwargs = nullptr) {
        std::optional<RpcError> error;
        return {client->call(std::string(method), params, kwargs, &error), error};  // a braced list runs the call first
    }

protected:
    explicit SimulatorTest(std::vector<std::string> args = {}) : sim(std::move(args)) {}

    void script(const Value& description) {
        EXPECT_EQ(sim.control(methods::sim::script, Value::array({description})), "done");
    }

    // Polls (a real process, so real time) until the condition holds or a generous bound passes.
    static bool eventually(const std::function<bool()>& condition) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (; !condition(); std::this_thread::sleep_for(std::chrono::milliseconds(20)))
            if (std::chrono::steady_clock::now() > deadline) return false;
        return true;
    }

    SimulatorProcess sim;
    std::shared_ptr<RPCClientWrapper> client = RPCClientWrapper::initWithIP("127.0.0.1", sim.port());
};

}  // namespace kelvane::testing
