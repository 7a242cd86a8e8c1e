// One RPCClientWrapper shared by several threads, as the TEC workers and the host share the
// session's client: every caller gets its own reply, and a slow call holds nobody else up.
#include "simulator_test_support.hpp"

#include "rpc/methods.hpp"

#include <future>
#include <thread>
#include <vector>

namespace kelvane::testing {
namespace {

const std::string setFanSpeed(methods::setFanSpeed);
const std::string getFanSpeed(methods::getFanSpeed);
const std::string serverMode(methods::serverMode);

class TransportConcurrencyTest : public SimulatorTest {};

// Each thread owns one fan and reads back the speed it has just set: a reply handed to the
// wrong caller shows as another thread's speed.
TEST_F(TransportConcurrencyTest, ThreadsSharingOneClientEachGetTheirOwnReplies) {
    constexpr int threads = 6;
    constexpr int rounds = 40;
    std::vector<std::future<std::vector<std::string>>> workers;
    for (int fan = 1; fan <= threads; ++fan) {
        workers.push_back(std::async(std::launch::async, [this, fan] {
            std::vector<std::string> faults;
            for (int round = 0; round < rounds; ++round) {
                int speed = fan * 1000 + round;
                std::optional<RpcError> error;
                Value set = client->call(setFanSpeed, {fan, speed}, nullptr, &error);
                Value got = client->call(getFanSpeed, {fan}, nullptr, &error);
                if (set != "done" || got != speed || error) {
                    faults.push_back("fan " + std::to_string(fan) + " set " +
                                     std::to_string(speed) + ": " + describe(set) + ", read " +
                                     describe(got) + (error ? ", " + error->text() : ""));
                }
            }
            return faults;
        }));
    }
    for (auto& worker : workers) {
        for (const auto& fault : worker.get()) ADD_FAILURE() << fault;
    }
}

TEST_F(TransportConcurrencyTest, SlowCallDoesNotHoldUpOtherThreadsCalls) {
    sim.control("sim.script", Value::array({{{"method", getFanSpeed},
                                             {"reply", "slow"},
                                             {"delay_ms", 2000},
                                             {"times", 1}}}));
    auto slow = std::async(std::launch::async, [this] {
        std::optional<RpcError> error;
        return client->call(getFanSpeed, {1}, {{"timeout_ms", 5000}}, &error);
    });
    ASSERT_TRUE(eventually([&] { return sim.control("sim.journal").size() == 1; }));
    for (int i = 0; i < 20; ++i) EXPECT_EQ(call(serverMode), "normal");
    EXPECT_EQ(slow.wait_for(std::chrono::seconds(0)), std::future_status::timeout)
        << "the quick calls finished while the slow one was still waiting";
    EXPECT_EQ(slow.get(), "slow");
}

TEST_F(TransportConcurrencyTest, TimeoutsOfSomeThreadsDoNotDisturbTheOthers) {
    sim.control("sim.script", Value::array({{{"method", getFanSpeed}, {"action", "no_reply"}}}));
    std::vector<std::future<bool>> silent;
    for (int i = 0; i < 3; ++i) {
        silent.push_back(std::async(std::launch::async, [this] {
            std::optional<RpcError> error;
            Value reply = client->call(getFanSpeed, {1}, {{"timeout_ms", 0}}, &error);
            return reply.is_null() && error && error->code == jsonrpc::timeoutError;
        }));
    }
    for (int i = 0; i < 30; ++i) EXPECT_EQ(call(serverMode), "normal");
    for (auto& call : silent) EXPECT_TRUE(call.get());
    EXPECT_EQ(call(serverMode), "normal");
}

}  // namespace
}  // namespace kelvane::testing
