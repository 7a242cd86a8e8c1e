// A station's sequence traced against kelvane-sim with faults injected, then replayed by
// `kelvane-sim --replay` to a fresh session, which must see exactly what the recorded one saw.
#include "session_fixture.hpp"
#include "simulator_process.hpp"
#include "virtual_clock.hpp"

#include <kelvane/protocol/methods.hpp>
#include "rpc/rpc_client_wrapper.hpp"

#include <kelvane/FixtureControl.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    Results results = {s.initialFixture() ? "true" : "false", s.checkPositionSensor(),
                       shown(s.checkDUTSensor()), shown(s.trayIn()), shown(s.trayDown()),
                       shown(s.fixtureLock("on")), shown(s.setIO(10, 1)),
                       s.setFanSpeed(1, 1500) ? "true" : "false", s.getFanSpeed(1)};
    for (int slot = 1; slot <= 4; ++slot) results.push_back(s.tecTempRecord2(slot));
    results.insert(results.end(), {shown(s.fixtureLock("off")), shown(s.trayUp()),
                                   shown(s.trayOut()), shown(s.fixtureInit())});
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
        auto connectTransport = [](const std::string& ip, std::uint32_t port) -> std::shared_ptr<RpcClient> {
            RPCClientWrapper::Options options;
            options.defaultTimeout = callWait, options.timeoutMargin = callMargin;
            return RPCClientWrapper::initWithIP(ip, port, options);
        };
        auto session = FixtureControl::initWithIP(
            {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", controller.port()}}}, {"identifier", "Fixture3"}},
            {std::make_shared<VirtualClock>(), std::make_shared<CapturingLog>(), root.path(), connectTransport,
             traced ? traceFile(trace, 1 << 30) : nullptr});
        EXPECT_TRUE(session && session->setUpTecMonitoring(4));
        return session;
    }

    Results recordWithFaults() {
        SimulatorProcess controller({"--travel-ms", "0", "--lift-ms", "0"});
        controller.control("sim.set", Value::array({{{"stuck", {{"down", 0}}},
            {"tec_faults", Value::array({{{"kind", "fail"}, {"slot", 1}, {"command", "get tec power"}, {"times", 1}},
                                         {{"kind", "no_answer"}, {"slot", 3}, {"command", "get tec temp:2"},
                                          {"times", 1}}})}}}));
        controller.control("sim.script", Value::array({
            script(m::dutSensorRead, {{"action", "no_reply"}}),
            script(m::fixtureIoSet, {{"action", "error"}, {"error", {{"code", 17}, {"message", "io board busy"}}}}),
            script(m::getFanSpeed, {{"action", "error"}, {"error", {{"code", 0}, {"message", "fan unknown"}}}})}));
        auto session = connect(controller, true);
        return session ? stationSequence(*session) : Results{};
    }

    TemporaryDirectory root;
    std::filesystem::path trace = root.path() / "station.trace";
};

TEST_F(TraceReplay, ARecordedCycleWithFaultsReplaysExactlyAndAChangedOneIsReported) {
    const Results recorded = recordWithFaults();
    ASSERT_FALSE(recorded.empty());
    // The faults took effect, so the replay has failures to reproduce.
    EXPECT_EQ(std::tie(recorded[2], recorded[4], recorded[6], recorded[8]),
              std::tie("<no reply>", "Fixture down action is executed,but down sensor is not OK\uFF01",
                       "io board busy (code 17)", "(null)"));
    EXPECT_THAT(recorded[9], ::testing::EndsWith(",(null) get null value.\r\n"));

    std::ifstream file(trace);
    std::set<std::string> outcomes;
    std::size_t lines = 0;
    for (std::string text; std::getline(file, text); ++lines) {
        outcomes.insert(Value::parse(text)["outcome"].get<std::string>());
    }
    EXPECT_EQ(outcomes, (std::set<std::string>{"result", "error", "timeout"}));

    {
        SimulatorProcess replay({"--replay", trace.string(), "--replay-strict"});
        auto session = connect(replay, false);
        ASSERT_NE(session, nullptr);
        EXPECT_EQ(stationSequence(*session), recorded);
        session.reset();
        Value report = replay.control("sim.replay_report");
        report.erase("repeated");
        EXPECT_EQ(report, (Value{{"recorded", lines}, {"replayed", lines}, {"unmatched", Value::array()},
                                 {"never_asked", Value::array()}}));
    }

    // Another host: the cycle cut short, and a fan speed never recorded. Without --replay-strict
    // the model answers it.
    SimulatorProcess replay({"--replay", trace.string()});
    auto session = connect(replay, false);
    ASSERT_NE(session, nullptr);
    EXPECT_TRUE(session->initialFixture());
    EXPECT_TRUE(session->setFanSpeed(2, 900));
    Value report = replay.control("sim.replay_report");
    EXPECT_EQ(report["unmatched"],
              Value::array({{{"method", std::string(m::setFanSpeed)}, {"params", Value::array({2, 900})}}}));
    EXPECT_THAT(report["never_asked"], Contains(Value{{"method", std::string(m::fixtureIn)}, {"params", Value::array()}}));
    EXPECT_LT(report["replayed"].get<std::size_t>(), lines);
}

}  // namespace
}  // namespace kelvane::testing
