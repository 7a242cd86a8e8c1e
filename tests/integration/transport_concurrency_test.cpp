// One RPCClientWrapper shared by several threads, as the TEC workers and the host share the
// session's client: every caller gets its own reply, and a slow or silent call holds nobody up.
#include "simulator_test_support.hpp"

#include <future>
#include <vector>

namespace kelvane::testing {
namespace {

const std::string setFanSpeed(methods::setFanSpeed);
const std::string getFanSpeed(methods::getFanSpeed);
const std::string serverMode(methods::serverMode);
const std::string dutSensorRead(methods::dutSensorRead);

using TransportConcurrencyTest = SimulatorTest;

// Each thread owns one fan and reads back the speed it has just set: a reply handed to the
// wrong caller shows as another thread's speed. Meanwhile other threads' calls time out.
TEST_F(TransportConcurrencyTest, ThreadsSharingOneClientGetTheirOwnRepliesWhileOthersTimeOut) {
    script({{"method", dutSensorRead}, {"action", "no_reply"}});
    std::vector<std::future<std::string>> workers;
    for (int fan = 1; fan <= 6; ++fan) {
        workers.push_back(std::async(std::launch::async, [this, fan] {
            for (int speed = fan * 1000; speed < fan * 1000 + 40; ++speed) {
                auto [set, setError] = ask(setFanSpeed, {fan, speed});
                auto [got, getError] = ask(getFanSpeed, {fan});
                if (set != "done" || got != speed || setError || getError)
                    return "fan " + std::to_string(fan) + " set " + std::to_string(speed) + ": " +
                           describe(set) + ", read " + describe(got);
            }
            return std::string();
        }));
    }
    for (int silent = 0; silent < 3; ++silent) {
        workers.push_back(std::async(std::launch::async, [this] {
            auto [reply, error] = ask(dutSensorRead, Value::array(), {{"timeout_ms", 0}});
            bool timedOut = reply.is_null() && error && error->code == jsonrpc::timeoutError;
            return timedOut ? std::string() : "silent call: " + describe(reply);
        }));
    }
    for (auto& worker : workers) EXPECT_EQ(worker.get(), "");
    EXPECT_EQ(call(serverMode), "normal");
}

TEST_F(TransportConcurrencyTest, SlowCallDoesNotHoldUpOtherThreadsCalls) {
    script({{"method", getFanSpeed}, {"reply", "slow"}, {"delay_ms", 2000}, {"times", 1}});
    auto slow = std::async(std::launch::async,
                           [this] { return ask(getFanSpeed, {1}, {{"timeout_ms", 5000}}).first; });
    ASSERT_TRUE(eventually([&] { return sim.control("sim.journal").size() == 1; }));
    for (int i = 0; i < 20; ++i) EXPECT_EQ(call(serverMode), "normal");
    EXPECT_EQ(slow.wait_for(std::chrono::seconds(0)), std::future_status::timeout)
        << "the quick calls finished while the slow one was still waiting";
    EXPECT_EQ(slow.get(), "slow");
}

}  // namespace
}  // namespace kelvane::testing
