// The C interface against a kelvane-sim process over the real transport: what each export
// returns must match what the simulated fixture reports, also when the controller refuses a
// move, a sensor is stuck, or the controller dies while the tray moves.
//
// The device is a Kelvane made with a test Platform and handed to the exports as a handle:
// its connector sends the fixed port 7805 to the simulator's free port, and its clock is
// virtual, so the poll deadlines pass without waiting.
#include "session_fixture.hpp"
#include "simulator_process.hpp"
#include "virtual_clock.hpp"

#include "rpc/rpc_client_wrapper.hpp"

#include <kelvane/Kelvane.hpp>
#include <kelvane/kelvane.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kelvane::testing {
namespace {

using ::testing::Contains;
using ::testing::Not;

// Virtual time whose first sleep (the move is acknowledged and its sensor polled once) runs a
// hook: the moment to break something mid-move.
class MidMoveClock final : public Clock {
public:
    std::function<void()> onFirstSleep;

    double now() override { return time_.now(); }
    void sleepFor(double seconds) override {
        if (auto hook = std::exchange(onFirstSleep, nullptr)) hook();
        time_.sleepFor(seconds);
    }

private:
    VirtualClock time_;
};

std::string text(const char* result) { return result ? result : "(NULL)"; }

// For what takes real time (a reconnection): polls until the condition holds or a generous
// bound passes.
bool eventually(const std::function<bool()>& condition) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

class CApiSimulatorTest : public ::testing::Test {
protected:
    CApiSimulatorTest() {
        Platform platform;
        platform.clock = clock;
        platform.log = log;
        platform.fileRoot = root.path();
        platform.connect = [this](const std::string& ip,
                                  std::uint32_t port) -> std::shared_ptr<RpcClient> {
            requestedIp = ip;
            requestedPort = port;
            return RPCClientWrapper::initWithIP(ip, sim.port());
        };
        device = handleOf(new Kelvane("127.0.0.1", platform));
    }
    ~CApiSimulatorTest() override { destroyKelvaneDev(device); }

    void set(const Value& changes) { sim.control("sim.set", Value::array({changes})); }
    Value tray() { return sim.control("sim.state")["tray"]; }
    std::vector<std::string> methodsCalled() {
        std::vector<std::string> methods;
        for (const auto& entry : sim.control("sim.journal")) methods.push_back(entry["method"]);
        return methods;
    }

    SimulatorProcess sim;
    TemporaryDirectory root;
    std::shared_ptr<MidMoveClock> clock = std::make_shared<MidMoveClock>();
    std::shared_ptr<CapturingLog> log = std::make_shared<CapturingLog>();
    std::string requestedIp;
    std::uint32_t requestedPort = 0;
    KelvaneHandle device = nullptr;
};

TEST_F(CApiSimulatorTest, DeviceConnectsToPort7805WithTheFixedTopologyAndNoScannerCheck) {
    ASSERT_EQ(getConnectFlag(device), 1);
    EXPECT_EQ(requestedIp, "127.0.0.1");
    EXPECT_EQ(requestedPort, 7805u);
    Value expected = {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", 7805}}},
                      {"identifier", 1},
                      {"units", 1},
                      {"ScanSN", "NO"}};
    EXPECT_EQ(deviceOf(device)->session()->toPology, expected);
    EXPECT_EQ(methodsCalled(), std::vector<std::string>{"server.mode"});
}

TEST_F(CApiSimulatorTest, MoveTheControllerRefusesIsReturnedAsItsReplyAndTheTrayStays) {
    // The sensors claim UP while the tray is really down: the library's checks pass, the
    // controller's mechanics refuse, and the host sees the controller's own words.
    set({{"tray", {{"horizontal", "OUT"}, {"vertical", "DOWN"}}},
         {"stuck", {{"up", 1}, {"down", 0}}}});
    EXPECT_EQ(text(trayIn(device)), "in_refused: tray is not up");
    EXPECT_EQ(tray()["horizontal"], "OUT");
    EXPECT_EQ(methodsCalled().back(), "vantrel.fixture_in") << "no polling after a refusal";
}

TEST_F(CApiSimulatorTest, StuckSensorGivesTheTimeoutTextAlthoughTheTrayMoved) {
    // Lifting takes no time here: the virtual deadline passes faster than a real lift.
    set({{"tray", {{"horizontal", "IN"}, {"vertical", "DOWN"}}},
         {"stuck", {{"up", 0}}},
         {"lift_ms", 0}});
    EXPECT_EQ(text(trayUp(device)), "Fixture up action is executed,but up sensor is not OK\uFF01");
    EXPECT_EQ(tray()["vertical"], "UP");

    // A sensor answering the text "1" reads as active in the position report but not in a
    // move's precondition.
    set({{"tray", {{"horizontal", "OUT"}, {"vertical", "UP"}}},
         {"stuck", {{"in", "1"}, {"up", nullptr}}}});
    EXPECT_EQ(text(checkPositionSensor(device)), "1;1;1;0");
    EXPECT_EQ(text(trayDown(device)), "Please IN first!");
    EXPECT_THAT(methodsCalled(), Not(Contains("vantrel.fixture_down")));
}

TEST_F(CApiSimulatorTest, ControllerDyingMidMoveGivesTheTimeoutTextAndTheDeviceRecovers) {
    set({{"tray", {{"horizontal", "IN"}, {"vertical", "DOWN"}}}, {"stall", "up"}});
    clock->onFirstSleep = [this] { sim.kill(); };
    EXPECT_EQ(text(trayUp(device)), "Fixture up action is executed,but up sensor is not OK\uFF01");
    EXPECT_EQ(text(checkDUTSensor(device)), "(NULL)");

    sim.restart();
    EXPECT_TRUE(eventually([&] { return text(checkPositionSensor(device)) == "0;1;1;0"; }))
        << "the same handle reaches the new controller once reconnected";
    set({{"travel_ms", 0}});
    EXPECT_EQ(text(trayIn(device)), "IN OK");
}

}  // namespace
}  // namespace kelvane::testing
