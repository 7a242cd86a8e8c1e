// One RPCClientWrapper shared by several threads, as the TEC workers and the host share the
// session's client: a slow call holds nobody up. (Threads getting their own replies while
// others time out or meet faults: the fault campaign's mixed part.)
#include "simulator_test_support.hpp"

#include <future>

namespace kelvane::testing {
namespace {

const std::string getFanSpeed(methods::getFanSpeed);
const std::string serverMode(methods::serverMode);

using TransportConcurrencyTest = SimulatorTest;

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
