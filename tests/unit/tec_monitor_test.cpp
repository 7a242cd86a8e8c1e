#include "session_fixture.hpp"
#include "stepped_clock.hpp"

#include "platform/worker_thread.hpp"

#include <gtest/gtest.h>

#include <array>
#include <condition_variable>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

using kelvane::FixtureControl;
using kelvane::Value;
using kelvane::WorkerThread;
using Lines = std::vector<std::string>;

namespace {

constexpr double passPause = 1.5;

// The pauses inside a pass (after each receive, the warm-up's) return at once; the pause between
// passes waits for the test's step, so a worker runs one pass per step.
class PassClock final : public kelvane::Clock {
public:
    double now() override { return stepped.now(); }
    double monotonic() override { return stepped.monotonic(); }
    void sleepFor(double seconds) override {
        if (seconds >= passPause) stepped.sleepFor(seconds);
    }
    kelvane::testing::SteppedClock stepped;
};

// Holds the first "can.send" after arm() until open(), so a test can act in the middle of a pass.
class PassGate {
public:
    void arm() { set(armed_, true); }
    void open() { set(open_, true); }
    void waitUntilReached() { waitFor(reached_); }
    void onSend() {
        std::unique_lock lock(mutex_);
        if (!armed_ || reached_) return;
        reached_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_; });
    }

private:
    void set(bool& flag, bool value) {
        std::lock_guard lock(mutex_);
        flag = value;
        changed_.notify_all();
    }
    void waitFor(const bool& flag) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return flag; });
    }
    std::mutex mutex_;
    std::condition_variable changed_;
    bool armed_ = false, reached_ = false, open_ = false;
};

// A controller board with a TEC controller per slot: it reassembles the frames sent to a slot's
// identifier and hands the answer back, seven bytes a frame, then a frame ending in 3.
class TecBoard {
public:
    explicit TecBoard(kelvane::testing::FakeRpcClient& board) : board_(board) {
        board.answer("can.open", Value("done"));
        board.answer("can.send", Value("done"));
        board.onCall([this](const kelvane::testing::RecordedCall& call) {
            if (call.method == "can.send") received(call.args);
        });
    }
    // Degrees read by each of a slot's four sensors.
    void setSensors(std::int32_t slot, std::array<std::string, 4> degrees) {
        std::lock_guard lock(mutex_);
        sensors_[slot] = std::move(degrees);
    }
    PassGate gate;

private:
    void received(const Value& args) {
        gate.onSend();
        const auto id = args[0].get<std::int32_t>();
        const Value& frame = args[1];
        std::string& command = pending_[id];
        for (std::size_t i = frame[0] == 0x10 ? 2 : 1; i < frame.size(); ++i) {
            command += static_cast<char>(frame[i].get<int>());
        }
        if (command.back() != 3) return;
        command.pop_back();
        answerWith(answerTo(id - 2079, command));
        command.clear();
    }
    std::string answerTo(std::int32_t slot, const std::string& command) {
        std::lock_guard lock(mutex_);
        if (command == "get tec power") return "TEC : 12.00 V, 1.25 A, 15.00 W ,PWM: -35.20% OK";
        auto degrees = sensors_.count(slot) ? sensors_[slot] : std::array<std::string, 4>{"25.31", "25.31", "25.31", "25.31"};
        return "TEC temp: " + degrees.at(command.back() - '1') + " C\r\nOK";
    }
    void answerWith(const std::string& text) {
        for (std::size_t at = 0; at < text.size(); at += 7) {
            Value frame = Value::array({0x21});
            for (char c : text.substr(at, 7)) frame.push_back(static_cast<unsigned char>(c));
            board_.answer("can.recv", Value{{"data", frame}});
        }
        board_.answer("can.recv", Value{{"data", Value::array({0x22, 3})}});
    }

    kelvane::testing::FakeRpcClient& board_;
    std::mutex mutex_;
    std::map<std::int32_t, std::array<std::string, 4>> sensors_;
    std::map<std::int32_t, std::string> pending_;  // by identifier: only the workers' threads
};

class TecMonitor : public ::testing::Test {
protected:
    TecMonitor() {
        auto platform = fixture.platform();
        platform.clock = clock;
        session = FixtureControl::initWithIP(kelvane::testing::SessionFixture::topology(), platform);
        fixture.log->clear();
        fixture.controller->clearCalls();
    }
    void TearDown() override {
        clock->stepped.releaseAll();
        if (session) session->close();
    }

    std::filesystem::path folder(std::int32_t slot) {
        return fixture.root.path() /
               ("Users/stnuser/Library/Logs/Korva/active/group2-slot" + std::to_string(slot) + "/user");
    }
    void setUpSlots() {
        ASSERT_TRUE(session->setUpTecMonitoring(4));
        for (std::int32_t slot = 1; slot <= 4; ++slot) std::filesystem::create_directories(folder(slot));
        fixture.log->clear();
    }
    // The CSV lines of a slot, the header kept whole, the time stamps of samples cut off.
    Lines csv(std::int32_t slot) {
        std::ifstream file(folder(slot) / ("TecTemp_Fixture3_Unit" + std::to_string(slot) + ".csv"));
        Lines lines;
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line.rfind("Timestamp", 0) == 0 ? line : line.substr(line.find(',') + 1));
        }
        return lines;
    }
    std::size_t passesLogged(std::int32_t slot) {
        std::ifstream file(folder(slot) / ("TecControlMonitor_Fixture3_Unit" + std::to_string(slot) + ".log"));
        const std::string running = ":    TesterReporting Fixture3 Slot" + std::to_string(slot) +
                                    " tecTempRecord running\r";
        std::size_t count = 0;
        for (std::string line; std::getline(file, line);) count += line.find(running) != std::string::npos;
        return count;
    }
    // The switch's own lines in the process log, without those of the passes.
    Lines switchLog() {
        Lines lines;
        for (const auto& line : fixture.log->lines()) {
            if (line.rfind("TesterReporting thread", 0) == 0 || line.rfind("After", 0) == 0 ||
                line.find("tecTempRecord state") != std::string::npos || line.find("is Cancelled") != std::string::npos) {
                lines.push_back(line);
            }
        }
        fixture.log->clear();
        return lines;
    }
    std::vector<std::shared_ptr<WorkerThread>>& workers() {
        return *FixtureControl::Private::of(*session).tecTempThreadArray;
    }
    Lines workerNames() {
        Lines names;
        for (const auto& worker : workers()) names.push_back(worker->name());
        return names;
    }
    void step(std::size_t running) {
        clock->stepped.advance(passPause);
        clock->stepped.waitForSleepers(running);
    }

    kelvane::testing::SessionFixture fixture;
    std::shared_ptr<PassClock> clock = std::make_shared<PassClock>();
    TecBoard board{*fixture.controller};
    std::shared_ptr<FixtureControl> session;
};

const std::string header = "Timestamp,Sensor1,Sensor2,Sensor3,Sensor4,PWM,Current,subsubtestname\r";
const std::string sample = "25.31,25.31,25.31,25.31,-35.20,1.25,step\r";

}  // namespace

TEST_F(TecMonitor, OnStartsAWorkerThatSamplesPassByPassAndOffEndsItAfterThePassUnderWay) {
    setUpSlots();
    EXPECT_EQ(session->tecTempStableFlag, Value::array({"YES", "YES", "YES", "YES"}));
    EXPECT_EQ(session->tecTempTimes, Value::array({0, 0, 0, 0}));
    EXPECT_EQ(fixture.controller->calls().front().args, Value::array({500000}));
    session->tecRecordItemNameArray[2] = "step";
    board.setSensors(3, {"25.31", "25.31", "25.31", "20.00"});  // each pass fails the minimum

    session->tecTempGet(3, "on");
    clock->stepped.waitForSleepers(1);
    EXPECT_EQ(switchLog(), (Lines{"TesterReporting Slot3 tecTempRecord state:on",
                                  "TesterReporting thread name:Slot3_TecTempThread",
                                  "After tecTempGet on--->>>tecTempThreadArray is [\"Slot3_TecTempThread\"]"}));
    ASSERT_EQ(workerNames(), Lines{"Slot3_TecTempThread"});
    EXPECT_TRUE(workers()[0]->isStarted());
    const std::string failing = "25.31,25.31,25.31,20.00,-35.20,1.25,step\r";
    EXPECT_EQ(csv(3), (Lines{header, failing}));
    EXPECT_EQ(passesLogged(3), 1u);
    for (const auto& call : fixture.controller->calls()) {
        if (call.method == "can.send") {
            EXPECT_EQ(call.args[0], 2082);
        }
    }

    step(1);
    EXPECT_EQ(csv(3), (Lines{header, failing, failing}));
    const Value records = session->getTecRecord(0);
    EXPECT_EQ(records.size(), 2u);
    EXPECT_EQ(session->getTecRecord(99), records);

    // Switched off in the middle of a pass: the pass ends, then the worker.
    const auto worker = workers()[0];
    board.gate.arm();
    clock->stepped.advance(passPause);
    board.gate.waitUntilReached();
    session->tecTempGet(3, "Off");
    EXPECT_TRUE(worker->isCancelled());
    EXPECT_TRUE(workers().empty());
    board.gate.open();
    worker->handle().waitUntilFinished();
    EXPECT_EQ(csv(3).size(), 4u);
    EXPECT_EQ(passesLogged(3), 3u);
    EXPECT_EQ(session->getTecRecord(3).size(), 3u);
    EXPECT_EQ(records.size(), 2u);  // a snapshot stays as taken

    session->tecTempGet(3, "OFF");
    session->tecTempGet(3, "START");
    EXPECT_EQ(switchLog(), (Lines{"TesterReporting Slot3 tecTempRecord state:Off",
                                  "After tecTempGet Off--->>>tecTempThreadArray is []",
                                  "TesterReporting Slot3 tecTempRecord state:OFF",
                                  "After tecTempGet OFF--->>>tecTempThreadArray is []",
                                  "After tecTempGet START--->>>tecTempThreadArray is []"}));

    // The on-demand reading writes nothing and records nothing.
    EXPECT_EQ(session->tecTempRecord2(3).substr(24), failing + "\n");
    EXPECT_EQ(csv(3).size(), 4u);
    EXPECT_EQ(session->getTecRecord(3).size(), 3u);
}

TEST_F(TecMonitor, SecondOnFailsToRestartAndOffSkipsTheSecondOfTwoWorkersSideBySide) {
    setUpSlots();
    board.setSensors(1, {"30.0", "26.0", "30.0", "30.0"});  // sensors 1 and 2 disagree
    session->tecTempGet(1, "ON");
    clock->stepped.waitForSleepers(1);
    EXPECT_EQ(session->getTecRecord(1).size(), 1u);

    EXPECT_THROW(session->tecTempGet(1, "ON"), kelvane::WorkerAlreadyStarted);
    EXPECT_EQ(workerNames(), Lines(2, "Slot1_TecTempThread"));
    EXPECT_FALSE(workers()[1]->isStarted());
    EXPECT_EQ(csv(1).front(), header);
    EXPECT_EQ(csv(1).back(), header);  // written again before the failed start
    EXPECT_TRUE(session->getTecRecord(1).empty());

    // Switching slot 2 on drops the records slot 1 collected.
    step(1);
    EXPECT_EQ(session->getTecRecord(1).size(), 1u);
    session->tecTempGet(2, "ON");
    clock->stepped.waitForSleepers(2);
    EXPECT_TRUE(session->getTecRecord(2).empty());
    EXPECT_EQ(csv(2), (Lines{header, "25.31,25.31,25.31,25.31,-35.20,1.25,NOT SET\r"}));
    switchLog();

    const auto first = workers()[0];
    session->tecTempGet(1, "OFF");
    EXPECT_TRUE(first->isCancelled());
    EXPECT_EQ(workerNames(), (Lines{"Slot1_TecTempThread", "Slot2_TecTempThread"}));
    EXPECT_FALSE(workers()[0]->isCancelled());

    workers()[0]->cancel();
    session->tecTempGet(1, "OFF");
    EXPECT_EQ(workerNames(), Lines{"Slot2_TecTempThread"});
    EXPECT_EQ(switchLog()[3], "Slot1_TecTempThread is Cancelled");
}

TEST_F(TecMonitor, WithoutTheSetUpStepOnStartsNothingAndWritesNoHeader) {
    EXPECT_FALSE(FixtureControl::Private::of(*session).tecTempThreadArray);  // creation: switch off
    std::filesystem::create_directories(folder(1));
    session->tecRecordArr = Value::array({"old"});
    session->tecTempGet(1, "On");
    EXPECT_EQ(switchLog(), (Lines{"TesterReporting Slot1 tecTempRecord state:On",
                                  "After tecTempGet On--->>>tecTempThreadArray is (null)"}));
    EXPECT_TRUE(session->tecRecordArr.empty());
    EXPECT_TRUE(std::filesystem::is_empty(folder(1)));
    EXPECT_EQ(session.use_count(), 1);  // the dropped worker holds no session

    fixture.controller->forget("can.open");
    EXPECT_FALSE(session->setUpTecMonitoring(4));
    EXPECT_EQ(fixture.log->lines(), Lines{"need TEC,Config Can fail."});
    EXPECT_FALSE(FixtureControl::Private::of(*session).tecTempThreadArray);
    EXPECT_TRUE(session->tecTempStableFlag.is_null());
}

TEST_F(TecMonitor, CloseStopsEveryWorkerAndWaitsForThem) {
    setUpSlots();
    session->tecTempGet(1, "ON");
    session->tecTempGet(2, "ON");
    clock->stepped.waitForSleepers(2);
    std::vector<WorkerThread::Handle> handles;
    for (const auto& worker : workers()) handles.push_back(worker->handle());

    std::thread closer([this] { session->close(); });
    for (const auto& handle : handles) {
        while (!handle.isCancelled()) std::this_thread::yield();
    }
    EXPECT_FALSE(handles[0].isFinished());  // asleep in its pause, close() waits
    clock->stepped.advance(passPause);
    closer.join();
    for (const auto& handle : handles) EXPECT_TRUE(handle.isFinished());
    EXPECT_EQ(csv(1).size(), 2u);  // no pass after the pause
    EXPECT_EQ(csv(2).size(), 2u);

    std::weak_ptr<FixtureControl> alive = session;
    session.reset();
    EXPECT_TRUE(alive.expired());  // the workers let go of the session
}
