// A kelvane-sim process and a real client connected to it, for the simulator's own tests.
#pragma once

#include "simulator_process.hpp"

#include "rpc/json_rpc.hpp"
#include "rpc/rpc_client_wrapper.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

namespace kelvane::testing {

class SimulatorTest : public ::testing::Test {
protected:
    explicit SimulatorTest(std::vector<std::string> args = {}) : sim(std::move(args)) {}

    // A call that must be answered with a result.
    Value call(const std::string& method, const Value& params = Value::array(),
               const Value& kwargs = nullptr) {
        std::optional<RpcError> error;
        Value reply = client->call(method, params, kwargs, &error);
        EXPECT_FALSE(error) << method << ": " << error->text();
        return reply;
    }

    // A call that must fail; its error.
    RpcError failure(const std::string& method, const Value& params = Value::array(),
                     const Value& kwargs = nullptr) {
        std::optional<RpcError> error;
        Value reply = client->call(method, params, kwargs, &error);
        EXPECT_TRUE(error) << method << " answered " << describe(reply);
        return error.value_or(RpcError{});
    }

    Value sensors() { return sim.control("sim.state")["sensors"]; }

    // Polls (a real process, so real time) until the condition holds or a generous bound passes.
    static bool eventually(const std::function<bool()>& condition) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    SimulatorProcess sim;
    std::shared_ptr<RPCClientWrapper> client = RPCClientWrapper::initWithIP("127.0.0.1", sim.port());
};

}  // namespace kelvane::testing
