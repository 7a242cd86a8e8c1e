// A station's sequence traced against kelvane-sim with faults injected, then replayed by
// `kelvane-sim --replay` to a fresh session, which must see exactly what the recorded one saw;
// and trace files of any shape, as kelvanectl and the replay read them.
#include "process_resources.hpp"
#include "session_fixture.hpp"
#include "simulator_process.hpp"
#include "virtual_clock.hpp"

#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/sim_methods.hpp>
#include "rpc/rpc_client_wrapper.hpp"

#include <kelvane/FixtureControl.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;
using ::testing::Contains;
using Results = std::vector<std::string>;

constexpr std::chrono::milliseconds callWait{300}, callMargin{100};

std::string shown(const Value& reply) { return reply.is_null() ? "<no reply>" : describe(reply); }

Results stationSequence(FixtureControl& s) {
    auto yes = [](bool done) -> std::string { return done ? "true" : "false"; };
    Results results = {yes(s.initialFixture()), s.checkPositionSensor(),     shown(s.checkDUTSensor()),
                       shown(s.trayIn()),       shown(s.trayDown()),         shown(s.fixtureLock("on")),
                       shown(s.setIO(10, 1)),   yes(s.setFanSpeed(1, 1500)), s.getFanSpeed(1)};
    for (int slot = 1; slot <= 4; ++slot) results.push_back(s.tecTempRecord2(slot));
    for (auto reply : {s.fixtureLock("off"), s.trayUp(), s.trayOut(), s.fixtureInit()}) results.push_back(shown(reply));
    return results;
}

Value script(std::string_view method, Value how) {
    how["method"] = std::string(method), how["times"] = 1;
    return how;
}

class TraceReplay : public ::testing::Test {
protected:
    // A session in virtual time, so its polls and TEC waits depend on the answers alone (the
    // recording's tray moves at once, so a poll sees it done); traced into `trace` when asked.
    std::shared_ptr<FixtureControl> connect(SimulatorProcess& controller, bool traced) {
        auto session = FixtureControl::initWithIP(
            {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", controller.port()}}}, {"identifier", "Fixture3"}},
            {std::make_shared<VirtualClock>(), std::make_shared<CapturingLog>(), root.path(),
             RPCClientWrapper::factory({.defaultTimeout = callWait, .timeoutMargin = callMargin}),
             traced ? traceFile(trace, 1 << 30) : nullptr});
        EXPECT_TRUE(session && session->setUpTecMonitoring(4));
        return session;
    }

    Results recordWithFaults() {
        SimulatorProcess controller({"--travel-ms", "0", "--lift-ms", "0"});
        const Value tecFaults = {{{"kind", "fail"}, {"slot", 1}, {"command", "get tec power"}, {"times", 1}},
                                 {{"kind", "no_answer"}, {"slot", 3}, {"command", "get tec temp:2"}, {"times", 1}}};
        controller.control(m::sim::set, Value::array({{{"stuck", {{"down", 0}}}, {"tec_faults", tecFaults}}}));
        const Value busy = {{"code", 17}, {"message", "io board busy"}},
                    unknown = {{"code", 0}, {"message", "fan unknown"}};
        controller.control(m::sim::script,
                           Value::array({script(m::dutSensorRead, {{"action", "no_reply"}}),
                                         script(m::fixtureIoSet, {{"action", "error"}, {"error", busy}}),
                                         script(m::getFanSpeed, {{"action", "error"}, {"error", unknown}})}));
        auto session = connect(controller, true);
        return session ? stationSequence(*session) : Results{};
    }

    TemporaryDirectory root;
    std::filesystem::path trace = root.path() / "station.trace";
};

TEST_F(TraceReplay, ARecordedCycleWithFaultsReplaysExactlyAndAChangedOneIsReported) {
    const Results recorded = recordWithFaults();
    ASSERT_FALSE(recorded.empty());
    EXPECT_EQ(std::tie(recorded[2], recorded[4], recorded[6], recorded[8]),
              std::tie("<no reply>", "Fixture down action is executed,but down sensor is not OK\uFF01",
                       "io board busy (code 17)", "(null)"));
    EXPECT_THAT(recorded[9], ::testing::EndsWith(",(null) get null value.\r\n"));

    std::ifstream file(trace);
    std::set<std::string> outcomes;
    std::size_t lines = 0;
    for (std::string text; std::getline(file, text); ++lines) outcomes.insert(Value::parse(text)["outcome"]);
    EXPECT_EQ(outcomes, (std::set<std::string>{"result", "error", "timeout"}));

    {
        SimulatorProcess replay({"--replay", trace.string(), "--replay-strict"});
        auto session = connect(replay, false);
        ASSERT_NE(session, nullptr);
        EXPECT_EQ(stationSequence(*session), recorded);
        session.reset();
        Value report = replay.control(m::sim::replayReport);
        report.erase("repeated");
        const Value none = Value::array();
        EXPECT_EQ(report,
                  (Value{{"recorded", lines}, {"replayed", lines}, {"unmatched", none}, {"never_asked", none}}));
    }

    // Another host: the cycle cut short, and a fan speed never recorded. Without --replay-strict
    // the model answers it.
    SimulatorProcess replay({"--replay", trace.string()});
    auto session = connect(replay, false);
    ASSERT_NE(session, nullptr);
    EXPECT_TRUE(session->initialFixture());
    EXPECT_TRUE(session->setFanSpeed(2, 900));
    Value report = replay.control(m::sim::replayReport);
    EXPECT_EQ(report["unmatched"],
              Value::array({{{"method", std::string(m::setFanSpeed)}, {"params", Value::array({2, 900})}}}));
    EXPECT_THAT(report["never_asked"],
                Contains(Value{{"method", std::string(m::fixtureIn)}, {"params", Value::array()}}));
    EXPECT_LT(report["replayed"].get<std::size_t>(), lines);
}

struct Ran {
    int status = -1;
    std::string out, err;
};

// A line of 200 MiB between valid ones cost a reading all its memory, or silently ended it, and
// a line of 250,000 nested brackets overflowed the stack. Now both tools read such a file under
// a 256 MiB address-space limit: kelvanectl skips the lines, reports them and counts every call;
// the replay refuses the file, naming the first. Under the sanitizers, whose shadow memory takes
// terabytes of address space, they run without the limit.
TEST(TraceFiles, ALineOfAnyLengthIsReportedInBoundedMemoryAndAReadErrorIsAnError) {
    TemporaryDirectory root;
    const auto trace = root.path() / "long-line.trace", out = root.path() / "out", err = root.path() / "err";
    auto run = [&](const std::string& command) {
        int status = std::system((command + " >" + out.string() + " 2>" + err.string()).c_str());
        return Ran{WIFEXITED(status) ? WEXITSTATUS(status) : -1, fileText(out), fileText(err)};
    };
    std::ofstream file(trace);
    const std::string mebibyte(1 << 20, 'x');
    for (int k = 1; k <= 96; ++k) {
        file << R"({"time":"2026-11-23T00:03:23.483Z","method":"server.mode","params":[],)"
             << R"("outcome":"result","result":"normal","ms":)" << k << "}\n";
        if (k == 60) {
            file << R"({"method":"m","outcome":"result","params":)" << std::string(1 << 18, '[')
                 << std::string(1 << 18, ']') << "}\n";
        }
        if (k != 48) continue;
        for (int part = 0; part < 200; ++part) file << mebibyte;
        file << "\n";
    }
    file.close();
    const std::string limit = builtWithoutSanitizers ? "ulimit -v 262144 && " : "";
    const std::string kelvanectl = limit + KELVANECTL_PATH " trace " + trace.string();

    Ran stats = run(kelvanectl + " --stats");
    EXPECT_EQ(stats.status, 0) << stats.err;
    EXPECT_THAT(stats.err, ::testing::HasSubstr("long-line.trace:49: longer than 4 MiB, skipped"));
    // Calls, errors, time-outs, p50 exact, p90 (87) and p99 (96) within 2 %, max.
    EXPECT_THAT(stats.out, ::testing::ContainsRegex("\nserver\\.mode +96 +0 +0 +48\\.0 +8[5-8]\\.[0-9] +9[4-7]\\.[0-9] "
                                                    "+96\\.0\n2 lines are not trace lines\n$"));

    Ran timeline = run(kelvanectl);
    EXPECT_EQ(timeline.status, 0) << timeline.err;
    EXPECT_EQ(std::count(timeline.out.begin(), timeline.out.end(), '\n'), 97) << "every call, and the note";

    Ran replay =
        run(limit + "timeout 60 " KELVANE_SIM_PATH " --bind tcp://127.0.0.1:0 --quiet --replay " + trace.string());
    EXPECT_EQ(replay.status, 1);
    EXPECT_THAT(replay.err, ::testing::HasSubstr("long-line.trace:49: not a trace line: longer than 4 MiB"));
    std::filesystem::remove(trace);

    Ran folder = run(KELVANECTL_PATH " trace " + root.path().string());
    EXPECT_EQ(folder.status, 1) << "a read error is not the end of an empty file";
    EXPECT_THAT(folder.err, ::testing::HasSubstr("reading " + root.path().string() + " failed after line 0: "));
    if (!builtWithoutSanitizers) GTEST_SKIP() << "ran without the address-space limit under a sanitizer";
}

}  // namespace
}  // namespace kelvane::testing
