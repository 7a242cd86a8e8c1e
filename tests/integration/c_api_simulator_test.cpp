// The C interface against a kelvane-sim process over the real transport: what the exports
// return must match what the simulated fixture reports, also when the controller refuses a
// move, a sensor is stuck, or the controller dies while the tray moves. The device's connector
// sends the fixed port 7805 to the simulator's port; its virtual clock makes deadlines instant.
#include "session_fixture.hpp"
#include "simulator_process.hpp"
#include "virtual_clock.hpp"

#include "rpc/rpc_client_wrapper.hpp"

#include <kelvane/Kelvane.hpp>
#include <kelvane/kelvane.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

namespace kelvane::testing {
namespace {

// Virtual time whose first sleep (the move is acknowledged and its sensor polled once) runs a
// hook: the moment to break something mid-move.
class MidMoveClock final : public Clock {
public:
    std::function<void()> onFirstSleep;

    double now() override { return time_.now(); }
    double monotonic() override { return time_.monotonic(); }
    void sleepFor(double seconds) override {
        if (auto hook = std::exchange(onFirstSleep, nullptr)) hook();
        time_.sleepFor(seconds);
    }

private:
    VirtualClock time_;
};

std::string text(const char* result) { return result ? result : "(NULL)"; }

class CApiSimulatorTest : public ::testing::Test {
protected:
    CApiSimulatorTest() {
        Platform platform = fakes.platform();
        platform.clock = clock;
        platform.connect = [this](const std::string& ip, std::uint32_t) -> std::shared_ptr<RpcClient> {
            return RPCClientWrapper::initWithIP(ip, sim.port());
        };
        device = handleOf(new Kelvane("127.0.0.1", platform));
    }
    ~CApiSimulatorTest() override { destroyKelvaneDev(device); }

    void set(const Value& changes) { sim.control("sim.set", Value::array({changes})); }
    Value tray() { return sim.control("sim.state")["tray"]; }

    SimulatorProcess sim;
    SessionFixture fakes;  // log and file root
    std::shared_ptr<MidMoveClock> clock = std::make_shared<MidMoveClock>();
    KelvaneHandle device = nullptr;
};

TEST_F(CApiSimulatorTest, MoveTheControllerRefusesIsReturnedAsItsReplyAndTheTrayStays) {
    // The sensors claim UP while the tray is really down: the library's checks pass, the
    // controller's mechanics refuse, and the host sees the controller's own words.
    set({{"tray", {{"horizontal", "OUT"}, {"vertical", "DOWN"}}},
         {"stuck", {{"up", 1}, {"down", 0}}}});
    EXPECT_EQ(text(trayIn(device)), "in_refused: tray is not up");
    EXPECT_EQ(tray()["horizontal"], "OUT");
    EXPECT_EQ(sim.control("sim.journal").back()["method"], "vantrel.fixture_in")
        << "no polling after a refusal";
}

TEST_F(CApiSimulatorTest, StuckSensorGivesTheTimeoutTextAlthoughTheTrayMoved) {
    // Lifting takes no time here: the virtual deadline passes faster than a real lift.
    set({{"tray", {{"horizontal", "IN"}, {"vertical", "DOWN"}}},
         {"stuck", {{"up", 0}}},
         {"lift_ms", 0}});
    EXPECT_EQ(text(trayUp(device)), "Fixture up action is executed,but up sensor is not OK\uFF01");
    EXPECT_EQ(tray()["vertical"], "UP");
}

TEST_F(CApiSimulatorTest, ControllerDyingMidMoveGivesTheTimeoutTextAndLaterReadsGiveNull) {
    set({{"tray", {{"horizontal", "IN"}, {"vertical", "DOWN"}}}, {"stall", "up"}});
    clock->onFirstSleep = [this] { sim.kill(); };
    EXPECT_EQ(text(trayUp(device)), "Fixture up action is executed,but up sensor is not OK\uFF01");
    EXPECT_EQ(text(checkDUTSensor(device)), "(NULL)");
}

}  // namespace
}  // namespace kelvane::testing
