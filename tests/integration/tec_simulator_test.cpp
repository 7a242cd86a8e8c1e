// TEC through kelvane-sim: four slots' workers over the real transport, pass by pass in virtual
// time, faults injected.
#include "session_fixture.hpp"
#include "simulator_test_support.hpp"
#include "virtual_clock.hpp"

#include <gmock/gmock.h>

#include <fmt/format.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <cstdio>

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

constexpr double restBetweenPasses = 1.5;

// Sleeps inside a pass move time at once; the 1.5 s rest after a pass waits for the test, so all
// resting workers go together (on the clock alone, the slots' pass counts would drift apart).
class PassStepper final : public Clock {
public:
    double now() override { return time_.now(); }
    double monotonic() override { return time_.monotonic(); }
    void sleepFor(double seconds) override {
        if (seconds != restBetweenPasses) return time_.sleepFor(seconds);
        std::unique_lock lock(mutex_);
        const std::size_t round = round_;
        ++rests_;
        changed_.notify_all();
        changed_.wait(lock, [&] { return released_ || round_ != round; });
    }

    // One pass of `workers` workers, all resting (or just switched on): they run until all rest.
    void runPass(std::size_t workers) {
        std::unique_lock lock(mutex_);
        const std::size_t target = rests_ + workers;
        if (target > workers) ++round_, time_.advance(restBetweenPasses), changed_.notify_all();
        if (!changed_.wait_for(lock, std::chrono::seconds(30), [&] { return rests_ >= target; }))
            ADD_FAILURE() << "the workers stalled";
    }

    void releaseAll() {
        std::lock_guard lock(mutex_);
        released_ = true;
        changed_.notify_all();
    }

private:
    VirtualClock time_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t rests_ = 0, round_ = 0;
    bool released_ = false;
};

std::vector<std::string> linesOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line + "\n");
    return lines;
}

const std::string csvHeader = "Timestamp,Sensor1,Sensor2,Sensor3,Sensor4,PWM,Current,subsubtestname\r\n";

// The simulator's thermal model: sensors between the set point (25 °C) and the ambient (27 °C,
// sensor 4 1.2 °C warmer), noise included; the power stage cooling.
void expectPlausibleReading(const std::string& line) {
    double sensors[4], pwm, current;
    char item[16];
    ASSERT_EQ(std::sscanf(line.c_str(), "%*2d/%*2d/%*4d %*2d:%*2d:%*2d.%*3d,%lf,%lf,%lf,%lf,%lf,%lf,%15[^,\r]\r\n",
                          &sensors[0], &sensors[1], &sensors[2], &sensors[3], &pwm, &current, item),
              7)
        << line;
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(sensors[i] >= 24.9 && sensors[i] <= (i == 3 ? 28.3 : 27.1)) << line;
    EXPECT_TRUE(pwm < 0 && current > 0 && current <= 3.0) << "cooling: " << line;
    EXPECT_STREQ(item, "NOT SET");
}

std::filesystem::path slotFile(const SessionFixture& files, int slot, const char* name, const char* type) {
    return files.slotFolder(slot) / fmt::format("{1}_Fixture3_Unit{0}.{2}", slot, name, type);
}

TEST(TecSimulator, FourWorkersRunPassByPassAndRecordTheInjectedFaults) {
    SimulatorProcess sim;
    SessionFixture files;  // the slots' folders, "Fixture3" writing to group 2
    auto stepper = std::make_shared<PassStepper>();
    Value topology = SessionFixture::topology();
    topology["FixtureIP"]["port"] = sim.port();
    auto session =
        FixtureControl::initWithIP(topology, {stepper, files.log, files.root.path(), Platform::defaults().connect});
    ASSERT_NE(session, nullptr);
    ASSERT_TRUE(session->setUpTecMonitoring(4));
    const auto csvFile = [&](int slot) { return slotFile(files, slot, "TecTemp", "csv"); };
    struct StopWorkers {
        PassStepper& clock;
        FixtureControl& session;
        ~StopWorkers() { clock.releaseAll(), session.close(); }
    } stopWorkers{*stepper, *session};
    // Pass 1 of each slot meets its faults: slot 1 a low sensor 4 (which the agreement check
    // leaves out), slot 2 sensors disagreeing, slot 3 a low sensor 1, which also disagrees with
    // sensors 2 and 3, slot 4 no answer to its power command.
    ASSERT_EQ(sim.control(
                  m::sim::set,
                  Value::array({{{"tec_faults",
                                  Value::array({
                                      {{"kind", "low_reading"}, {"slot", 1}, {"sensor", 4}, {"times", 1}},
                                      {{"kind", "sensor_offset"}, {"slot", 2}, {"times", 1}},
                                      {{"kind", "low_reading"}, {"slot", 3}, {"times", 1}},
                                      {{"kind", "no_answer"}, {"slot", 4}, {"command", "get tec power"}, {"times", 1}},
                                  })}}})),
              "done");
    for (int slot = 1; slot <= 4; ++slot) session->tecTempGet(slot, "ON");

    constexpr std::size_t passes = 3;
    for (std::size_t pass = 0; pass < passes; ++pass) stepper->runPass(4);

    std::vector<std::string> csv[5];
    for (int slot = 1; slot <= 4; ++slot) {
        SCOPED_TRACE(slot);
        csv[slot] = linesOf(csvFile(slot));
        ASSERT_EQ(csv[slot].size(), 1u + passes);
        EXPECT_EQ(csv[slot][0], csvHeader);
        for (std::size_t pass = 2; pass <= passes; ++pass) expectPlausibleReading(csv[slot][pass]);
        const auto monitor = linesOf(slotFile(files, slot, "TecControlMonitor", "log"));
        const auto countOf = [&](const std::string& text) {
            return std::size_t(
                std::count_if(monitor.begin(), monitor.end(), [&](auto& l) { return l.find(text) != l.npos; }));
        };
        EXPECT_EQ(countOf(fmt::format("TesterReporting Fixture3 Slot{} tecTempRecord running", slot)), passes);
        EXPECT_EQ(countOf("resultStr [0]: TEC "), 5u * passes - (slot == 4));
    }
    EXPECT_THAT(csv[1][1], HasSubstr(",18.00,")) << "sensor 4 read low";
    EXPECT_THAT(csv[4][1], EndsWith(",(null) get null value.\r\n"));
    EXPECT_THAT(session->getTecRecord(4).get<std::vector<std::string>>(),
                UnorderedElementsAre(csv[1][1], csv[2][1], csv[3][1], csv[3][1]))
        << "a low reading once, disagreeing sensors once, both twice; a missing answer never";
}

}  // namespace
}  // namespace kelvane::testing
