// The C interface against a kelvane-sim process over the real transport: what the exports
// return must match what the simulated fixture reports, also when the controller refuses a
// move, a sensor is stuck, the controller dies while the tray moves, or the host destroys the
// handle while another thread is inside a call. The device's connector sends the fixed
// controller port to the simulator's port; its virtual clock makes deadlines instant.
#include "session_fixture.hpp"
#include "simulator_process.hpp"
#include "virtual_clock.hpp"

#include "rpc/rpc_client_wrapper.hpp"

#include <kelvane/Kelvane.hpp>
#include <kelvane/kelvane.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>

namespace kelvane::testing {
namespace {

// Virtual time whose first sleep (the move is acknowledged and its sensor polled once) runs a
// hook: the moment to break something mid-move.
class MidMoveClock final : public Clock {
public:
    std::function<void()> onFirstSleep;
    int sleeps = 0;

    double now() override { return time_.now(); }
    double monotonic() override { return time_.monotonic(); }
    void sleepFor(double seconds) override {
        ++sleeps;
        if (auto hook = std::exchange(onFirstSleep, nullptr)) hook();
        time_.sleepFor(seconds);
    }

private:
    VirtualClock time_;
};

std::string text(const char* result) { return result ? result : "(NULL)"; }

class CApiSimulatorTest : public ::testing::Test {
protected:
    CApiSimulatorTest() : device(connect()) {}
    ~CApiSimulatorTest() override { destroyKelvaneDev(device); }

    KelvaneHandle connect() {
        Platform platform = fakes.platform();
        platform.clock = clock;
        platform.connect = [this](const std::string& ip, std::uint32_t) -> std::shared_ptr<RpcClient> {
            return RPCClientWrapper::initWithIP(ip, sim.port());
        };
        return handleOf(std::make_shared<Kelvane>("127.0.0.1", platform));
    }

    void set(const Value& changes) { sim.control("sim.set", Value::array({changes})); }
    Value tray() { return sim.control("sim.state")["tray"]; }

    // Returns once the simulator has received a call of `method`, the newest in its journal.
    void awaitRequest(const std::string& method) {
        for (int attempt = 0; attempt < 2000; ++attempt) {
            Value journal = sim.control("sim.journal");
            if (!journal.empty() && journal.back()["method"] == method) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        FAIL() << method << " never reached the simulator";
    }

    SimulatorProcess sim;
    SessionFixture fakes;  // log and file root
    std::shared_ptr<MidMoveClock> clock = std::make_shared<MidMoveClock>();
    KelvaneHandle device;
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

// A station aborting a run destroys the handle while another thread is inside a call: the call
// ends early with its usual failure result and touches nothing the destroy released (under
// AddressSanitizer a use after free fails this test).
TEST_F(CApiSimulatorTest, DestroyWhileAnotherThreadIsInsideACallEndsThatCallEarly) {
    auto destroyFromAnotherThread = [](KelvaneHandle handle) {
        std::thread([handle] { destroyKelvaneDev(handle); }).join();
    };

    KelvaneHandle moving = connect();
    set({{"tray", {{"horizontal", "IN"}, {"vertical", "DOWN"}}}, {"stall", "up"}});
    clock->onFirstSleep = [&] { destroyFromAnotherThread(moving); };
    EXPECT_EQ(text(trayUp(moving)), "Fixture up action is executed,but up sensor is not OK\uFF01");
    EXPECT_EQ(clock->sleeps, 1) << "the poll loop stops at its next step";
    EXPECT_EQ(text(trayUp(moving)), "(NULL)") << "a destroyed handle has no session";

    // Replies held back far longer than any call waits: the destroy comes while the call is in.
    using Operation = const char* (*)(KelvaneHandle);
    auto destroyWhileWaiting = [&](const std::string& method, Operation operation) {
        sim.control("sim.script", Value::array({{{"method", method}, {"delay_ms", 600000}}}));
        KelvaneHandle handle = connect();
        std::string result;
        std::thread caller([&] { result = text(operation(handle)); });
        awaitRequest(method);
        destroyFromAnotherThread(handle);
        caller.join();
        return result;
    };
    EXPECT_EQ(destroyWhileWaiting("vantrel.dut_sensor_read", checkDUTSensor), "(NULL)");
    EXPECT_EQ(destroyWhileWaiting("vantrel.fixture_io_set",
                                  [](KelvaneHandle handle) { return setIO(handle, 10, 1); }),
              "RPC client closed (code -32002)");
}

}  // namespace
}  // namespace kelvane::testing
