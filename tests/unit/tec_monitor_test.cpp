#include "session_fixture.hpp"
#include "stepped_clock.hpp"

#include "platform/worker_thread.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <fstream>
#include <future>
#include <regex>
#include <thread>

using kelvane::FixtureControl;
using kelvane::Value;
using Lines = std::vector<std::string>;

namespace {

constexpr double passPause = 1.5;

// The pauses inside a pass (after each receive, the warm-up's) return at once unless a test
// holds passes there; the pause between passes waits for the test's step or the worker's cancel.
class PassClock final : public kelvane::Clock {
public:
    double now() override { return stepped.now(); }
    double monotonic() override { return stepped.monotonic(); }
    void sleepFor(double seconds) override {
        if (holdInPass) stepped.sleepFor(seconds);
    }
    void sleepUnlessCancelled(double s, const kelvane::CancelSignal& c) override { stepped.sleepUnlessCancelled(s, c); }
    kelvane::testing::SteppedClock stepped;
    std::atomic<bool> holdInPass{false};
};

// Waits, in real time and for `limit` at most, for what a worker does.
bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto until = std::chrono::steady_clock::now() + limit;
    for (; !condition(); std::this_thread::sleep_for(std::chrono::milliseconds(1)))
        if (std::chrono::steady_clock::now() > until) return false;
    return true;
}

class TecMonitor : public ::testing::Test {
protected:
    TecMonitor() {
        auto platform = fixture.platform();
        platform.clock = clock;
        session = FixtureControl::initWithIP(fixture.topology(), platform);
        fixture.log->clear();
        fixture.controller->clearCalls();
        // Every TEC command is taken and answered "OK": a line of zeros, below the minimum.
        fixture.controller->answer("can.open", Value("done"));
        fixture.controller->answer("can.send", Value("done"));
        fixture.controller->answer("can.recv", Value{{"data", {4, 'O', 'K', 3}}});
    }
    void TearDown() override {
        clock->stepped.releaseAll();
        if (session) session->close();
    }

    // A slot's CSV lines, the samples' time stamps cut off.
    Lines csv(std::int32_t slot) {
        std::ifstream file(fixture.slotFolder(slot) / fmt::format("TecTemp_Fixture3_Unit{}.csv", slot));
        Lines lines;
        for (std::string line; std::getline(file, line);) lines.push_back(line[0] == 'T' ? line : line.substr(24));
        return lines;
    }
    std::string monitorLog(std::int32_t slot) {
        return kelvane::testing::fileText(fixture.slotFolder(slot) /
                                          fmt::format("TecControlMonitor_Fixture3_Unit{}.log", slot));
    }
    // The switch's own lines in the process log, then a fresh log.
    Lines switchLog() {
        const std::regex own("^(TesterReporting (thread|Slot. tecTempRecord state)|After|.* is Can)");
        Lines lines;
        for (const auto& line : fixture.log->lines())
            if (std::regex_search(line, own)) lines.push_back(line);
        fixture.log->clear();
        return lines;
    }
    void step(std::size_t running) {
        clock->stepped.advance(passPause);
        clock->stepped.waitForSleepers(running);
    }

    kelvane::testing::SessionFixture fixture;
    std::shared_ptr<PassClock> clock = std::make_shared<PassClock>();
    std::shared_ptr<FixtureControl> session;
};

const std::string header = "Timestamp,Sensor1,Sensor2,Sensor3,Sensor4,PWM,Current,subsubtestname\r";

}  // namespace

TEST_F(TecMonitor, OnStartsAWorkerThatSamplesPassByPassAndOffEndsItAfterThePassUnderWay) {
    ASSERT_TRUE(session->setUpTecMonitoring(4));
    EXPECT_EQ(fixture.controller->calls().front().args, Value::array({500000}));
    session->tecRecordItemNameArray(Value::array({"NOT SET", "NOT SET", "step", "NOT SET"}));

    session->tecTempGet(3, "on");
    clock->stepped.waitForSleepers(1);
    EXPECT_EQ(switchLog(),
              (Lines{"TesterReporting Slot3 tecTempRecord state:on", "TesterReporting thread name:Slot3_TecTempThread",
                     "After tecTempGet on--->>>tecTempThreadArray is (\n    \"Slot3_TecTempThread\"\n)"}));
    const std::string sample = "0.00,0.00,0.00,0.00,0.00,0.00,step\r";
    EXPECT_EQ(csv(3), (Lines{header, sample}));
    EXPECT_EQ(fixture.controller->calls()[1].args[0], 2082);  // slot + 2079

    // Switched off in the middle of its second pass: the pass ends, then the worker, which lets go of the
    // session; one not cancelled would wait in its pause, holding the session.
    clock->holdInPass = true;
    step(1);
    EXPECT_EQ(session->tecTempStableFlag()[2], "YES");  // a property does not wait for the pass
    session->tecTempGet(3, "Off");
    clock->holdInPass = false;
    clock->stepped.advance(passPause);
    ASSERT_TRUE(eventually([&] { return session.use_count() == 1; }));
    EXPECT_EQ(csv(3).size(), 3u);
    const std::string monitor = monitorLog(3);
    const std::regex running(":    TesterReporting Fixture3 Slot3 tecTempRecord running\r\n");
    EXPECT_EQ(std::distance(std::sregex_iterator(monitor.begin(), monitor.end(), running), {}), 2);
    EXPECT_EQ(session->getTecRecord(99).size(), 2u);  // every slot's records, whatever the slot

    session->tecTempGet(3, "OFF");
    session->tecTempGet(3, "START");
    EXPECT_EQ(
        switchLog(),
        (Lines{"TesterReporting Slot3 tecTempRecord state:Off", "After tecTempGet Off--->>>tecTempThreadArray is (\n)",
               "TesterReporting Slot3 tecTempRecord state:OFF", "After tecTempGet OFF--->>>tecTempThreadArray is (\n)",
               "After tecTempGet START--->>>tecTempThreadArray is (\n)"}));
}

TEST_F(TecMonitor, SecondOnFailsToRestartAndOffSkipsTheSecondOfTwoWorkersSideBySide) {
    ASSERT_TRUE(session->setUpTecMonitoring(4));
    session->tecRecordItemNameArray(Value::array({"one", "two"}));
    session->tecTempGet(1, "ON");
    clock->stepped.waitForSleepers(1);
    EXPECT_EQ(session->getTecRecord(1).size(), 1u);

    EXPECT_THROW(session->tecTempGet(1, "ON"), kelvane::WorkerAlreadyStarted);
    EXPECT_EQ(csv(1).back(), header);  // written again before the failed start
    EXPECT_TRUE(session->getTecRecord(1).empty());

    session->tecTempGet(2, "ON");
    clock->stepped.waitForSleepers(2);
    EXPECT_EQ(csv(2), (Lines{header, "0.00,0.00,0.00,0.00,0.00,0.00,two\r"}));
    switchLog();

    // Of slot 1's two workers, the running one is stopped (its thread ends and lets go of the
    // session); the unstarted one beside it stays, not cancelled, until the next OFF.
    session->tecTempGet(1, "OFF");
    session->tecTempGet(1, "OFF");
    EXPECT_EQ(switchLog(),
              (Lines{"TesterReporting Slot1 tecTempRecord state:OFF",
                     "After tecTempGet OFF--->>>tecTempThreadArray is (\n    \"Slot1_TecTempThread\",\n"
                     "    \"Slot2_TecTempThread\"\n)",
                     "TesterReporting Slot1 tecTempRecord state:OFF",
                     "After tecTempGet OFF--->>>tecTempThreadArray is (\n    \"Slot2_TecTempThread\"\n)"}));
    EXPECT_TRUE(eventually([&] { return session.use_count() == 2; }));  // the test's and slot 2's

    // Closing cancels slot 2's worker but leaves it in the array, where OFF finds it cancelled.
    session->close();
    EXPECT_EQ(session.use_count(), 1);
    session->tecTempGet(2, "OFF");
    EXPECT_EQ(switchLog()[1], "Slot2_TecTempThread is Cancelled");
}

// Neither another slot's pass nor a reading on demand sends anything during a pass's warm-up sleep;
// the "running" line before a pass and the pause after it hold no lock.
TEST_F(TecMonitor, APassHoldsTheObjectLockThroughItsWarmUpSleepButNotItsRunningLineOrItsRest) {
    ASSERT_TRUE(session->setUpTecMonitoring(4));
    session->tecTempStableFlag(Value::array({"NO", "YES", "YES", "YES"}));
    clock->holdInPass = true;
    session->tecTempGet(1, "ON");
    clock->stepped.waitForSleepers(1);  // in its warm-up sleep
    switchLog();
    session->tecTempGet(2, "ON");
    EXPECT_EQ(switchLog(),
              (Lines{"TesterReporting Slot2 tecTempRecord state:ON", "TesterReporting thread name:Slot1_TecTempThread",
                     "TesterReporting thread name:Slot2_TecTempThread",
                     "After tecTempGet ON--->>>tecTempThreadArray is (\n    \"Slot1_TecTempThread\",\n"
                     "    \"Slot2_TecTempThread\"\n)"}));
    ASSERT_TRUE(eventually([&] { return monitorLog(2).find("tecTempRecord running") != std::string::npos; }));
    auto reading = std::async(std::launch::async, [&] { return session->tecTempRecord2(3); });
    EXPECT_FALSE(eventually([&] { return fixture.controller->calls().size() > 1; }, std::chrono::milliseconds(200)))
        << "only the channel's opening";

    clock->holdInPass = false;
    clock->stepped.advance(1.0);
    ASSERT_EQ(reading.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    ASSERT_TRUE(eventually([&] { return csv(2).size() == 2; }));  // slot 2's pass, while slot 1 rests
    clock->stepped.waitForSleepers(2);
    auto atRest = std::async(std::launch::async, [&] { return session->tecTempRecord2(4); });
    EXPECT_EQ(atRest.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "a pause holds no lock";
}

TEST_F(TecMonitor, WithoutTheSetUpStepOnStartsNothingAndWritesNoHeader) {
    session->tecRecordArr(Value::array({"old"}));
    session->tecTempGet(1, "On");
    EXPECT_EQ(switchLog(), (Lines{"TesterReporting Slot1 tecTempRecord state:On",
                                  "After tecTempGet On--->>>tecTempThreadArray is (null)"}));
    EXPECT_TRUE(session->tecRecordArr().empty());
    EXPECT_TRUE(std::filesystem::is_empty(fixture.slotFolder(1)));  // where a header would be
    EXPECT_EQ(session.use_count(), 1);                              // the dropped worker holds no session

    fixture.controller->forget("can.open");
    EXPECT_FALSE(session->setUpTecMonitoring(4));
    EXPECT_EQ(fixture.log->lines(), Lines{"need TEC,Config Can fail."});
    session->tecTempGet(1, "OFF");
    EXPECT_EQ(switchLog().back(), "After tecTempGet OFF--->>>tecTempThreadArray is (null)");
}

TEST_F(TecMonitor, OffAndCloseEndThePauseAtOnceAndCloseWaitsForEveryWorker) {
    ASSERT_TRUE(session->setUpTecMonitoring(4));
    for (std::int32_t slot = 1; slot <= 4; ++slot) session->tecTempGet(slot, "ON");
    clock->stepped.waitForSleepers(4);
    auto stopped = std::async(std::launch::async, [&] {
        session->tecTempGet(1, "OFF");
        eventually([&] { return session.use_count() == 4; });  // slot 1's worker has ended
        session->close();
        return session.use_count();  // 1 once every worker has ended
    });
    const bool prompt = stopped.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    clock->stepped.releaseAll();  // a pause that ran on ends, so the test ends either way
    ASSERT_TRUE(prompt) << "a pause ran on";
    EXPECT_EQ(stopped.get(), 1) << "close() returned before every worker had ended";
    EXPECT_EQ(csv(1).size(), 2u);  // no pass after the pause
}
