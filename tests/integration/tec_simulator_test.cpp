// TEC through kelvane-sim: four slots' workers over the real transport, pass by pass in virtual
// time. What a fault does is shown by the sampling's tests and the simulator's CAN bus tests.
#include "session_fixture.hpp"
#include "simulator_test_support.hpp"
#include "stepped_clock.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <cstdio>
#include <fstream>

namespace kelvane::testing {
namespace {

// Sleeps inside a pass move the pass's own time at once; the rest after a pass waits for the
// test's step, so all workers go together (on one clock, the slots' pass counts would drift apart).
class PassClock final : public Clock {
public:
    double now() override { return stepped.now() + inPass(); }
    double monotonic() override { return stepped.monotonic() + inPass(); }
    void sleepFor(double seconds) override {
        std::lock_guard lock(mutex_);
        inPass_ += seconds;
    }
    void sleepUnlessCancelled(double s, const CancelSignal& c) override { stepped.sleepUnlessCancelled(s, c); }
    SteppedClock stepped;

private:
    double inPass() {
        std::lock_guard lock(mutex_);
        return inPass_;
    }
    std::mutex mutex_;
    double inPass_ = 0;
};

// The simulator's thermal model: sensors between the set point (25 °C) and the ambient (27 °C,
// sensor 4 1.2 °C warmer), noise included; the power stage cooling.
void expectPlausibleReading(const std::string& line) {
    double t[4], pwm, current;
    char item[16];
    ASSERT_EQ(std::sscanf(line.c_str(), "%*2d/%*2d/%*4d %*2d:%*2d:%*2d.%*3d,%lf,%lf,%lf,%lf,%lf,%lf,%15[^,\r]\r\n",
                          &t[0], &t[1], &t[2], &t[3], &pwm, &current, item),
              7)
        << line;
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(t[i] >= 24.9 && t[i] <= (i == 3 ? 28.3 : 27.1)) << line;
    EXPECT_TRUE(pwm < 0 && current > 0 && current <= 3.0 && item == std::string("NOT SET")) << line;
}

TEST(TecSimulator, FourWorkersRunPassByPassOverTheRealTransport) {
    SimulatorProcess sim;
    SessionFixture files;  // the slots' folders, "Fixture3" writing to group 2
    auto clock = std::make_shared<PassClock>();
    Value topology = SessionFixture::topology();
    topology["FixtureIP"]["port"] = sim.port();
    auto session =
        FixtureControl::initWithIP(topology, {clock, files.log, files.root.path(), Platform::defaults().connect});
    ASSERT_TRUE(session && session->setUpTecMonitoring(4));
    struct StopWorkers {
        PassClock& clock;
        FixtureControl& session;
        ~StopWorkers() { clock.stepped.releaseAll(), session.close(); }
    } stopWorkers{*clock, *session};
    for (int slot = 1; slot <= 4; ++slot) session->tecTempGet(slot, "ON");
    clock->stepped.waitForSleepers(4);
    for (int pass = 2; pass <= 3; ++pass) clock->stepped.advance(1.5), clock->stepped.waitForSleepers(4);

    for (int slot = 1; slot <= 4; ++slot) {
        SCOPED_TRACE(slot);
        std::vector<std::string> csv;
        std::ifstream in(files.slotFolder(slot) / fmt::format("TecTemp_Fixture3_Unit{}.csv", slot), std::ios::binary);
        for (std::string line; std::getline(in, line);) csv.push_back(line + "\n");
        ASSERT_EQ(csv.size(), 4u);
        for (int pass = 1; pass <= 3; ++pass) expectPlausibleReading(csv[pass]);
    }
    EXPECT_EQ(session->getTecRecord(4), Value::array()) << "plausible readings pass both checks";
}

}  // namespace
}  // namespace kelvane::testing
