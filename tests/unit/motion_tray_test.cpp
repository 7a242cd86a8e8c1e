#include "session_fixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>

using kelvane::FixtureControl;
using kelvane::Value;
using kelvane::testing::SessionFixture;
using ::testing::ElementsAre;

namespace {

struct Move {
    Value (FixtureControl::*start)();
    std::vector<std::pair<std::string, Value>> ready;  // the reads before the move, answered to let it start
    std::vector<std::string> log;                      // the lines logged up to the move
    std::string moveMethod, ack, sensor;
    double deadline;
    std::string successLog, successResult, timeoutResult;
};

const std::string bang = "\xEF\xBC\x81";  // full width

Move row(Value (FixtureControl::*start)(), std::vector<std::pair<std::string, Value>> ready,
         std::vector<std::string> log, std::string moveMethod, std::string ack, std::string sensor, double deadline,
         std::string successLog, std::string successResult, std::string timeoutResult) {
    return {start, ready, log, moveMethod, ack, sensor, deadline, successLog, successResult, timeoutResult};
}

const std::vector<Move> moves = {
    row(&FixtureControl::trayUp, {}, {"Fixture UP."}, "vantrel.fixture_up", "up_done", "vantrel.up_sensor_read", 5.0,
        "UP OK\r", "UP OK", "Fixture up action is executed,but up sensor is not OK" + bang),
    row(&FixtureControl::trayDown, {{"vantrel.in_sensor_read", 1}, {"vantrel.dut_sensor_read", "dut_sensor_on"}},
        {"Fixture Down.", "Current state: 1\r", "DOWN", "checkDUTSensor state is dut_sensor_on\n"},
        "vantrel.fixture_down", "down_done", "vantrel.down_sensor_read", 5.0, "DOWN OK.\r", "DOWN OK",
        "Fixture down action is executed,but down sensor is not OK" + bang),
    row(&FixtureControl::trayIn,
        {{"vantrel.up_sensor_read", 1}, {"vantrel.in_sensor_read", 0}, {"vantrel.down_sensor_read", Value()}},
        {"Fixture IN.", "Current state: 1\r"}, "vantrel.fixture_in", "in_done", "vantrel.in_sensor_read", 15.0,
        "IN OK.\r", "IN OK", "Fixture in action is executed,but down sensor is not OK" + bang),
    row(&FixtureControl::trayOut, {{"vantrel.out_sensor_read", 0}, {"vantrel.down_sensor_read", Value()}},
        {"Fixture OUT."}, "vantrel.fixture_out", "out_done", "vantrel.out_sensor_read", 15.0, "OUT OK.\r", "OUT OK",
        "Fixture out action is executed,but out sensor is not OK" + bang),
};

// A connected session whose controller lets `move` start and acknowledges it with `moveReply`;
// the target sensor answers the given readings in order.
std::shared_ptr<FixtureControl> readyToMove(SessionFixture& fixture, const Move& move, Value moveReply,
                                            std::vector<Value> readings) {
    auto session = fixture.connect();
    for (const auto& [method, answer] : move.ready) fixture.controller->answer(method, answer);
    fixture.controller->answer(move.moveMethod, moveReply);
    for (auto& reading : readings) fixture.controller->answer(move.sensor, reading);
    return session;
}

}  // namespace

// A reply other than the exact acknowledgement is returned without polling. Every call is plain.
TEST(TrayMotion, ExactAcknowledgementThenTheNumberOneFromTheTargetSensorIsSuccess) {
    for (const auto& move : moves) {
        for (Value reply :
             {Value(), Value(move.ack + "\r"), Value(kelvane::upperCased(move.ack)), Value(1), Value(move.ack)}) {
            SCOPED_TRACE(move.moveMethod + " answered " + reply.dump());
            SessionFixture fixture;
            auto session = readyToMove(fixture, move, reply, {0, "1", Value(), 1});
            const bool acknowledged = reply == move.ack;
            EXPECT_EQ(((*session).*move.start)(), acknowledged ? Value(move.successResult) : reply);
            std::vector<std::string> requests, lines = move.log;
            for (const auto& [method, answer] : move.ready) requests.push_back(method);
            requests.push_back(move.moveMethod);
            if (acknowledged) {
                requests.insert(requests.end(), 4, move.sensor);
                lines.push_back(move.successLog);
                EXPECT_THAT(fixture.clock->sleeps(), ElementsAre(0.5, 0.5, 0.5));
            }
            EXPECT_EQ(fixture.controller->requests(), requests);
            EXPECT_EQ(fixture.log->lines(), lines);
        }
    }
}

// A wall-clock step (a time sync) during the move changes neither the reads nor the result.
TEST(TrayMotion, DeadlineCountsFromTheMoveReplyOnTheSteadyClockAndAllowsOneReadPastIt) {
    for (const auto& move : moves) {
        for (double wallStep : {0.0, 30.0, -30.0}) {
            SCOPED_TRACE(move.moveMethod + " wall step " + std::to_string(wallStep));
            SessionFixture fixture;
            auto session = readyToMove(fixture, move, move.ack, {0});
            double moveReturned = 0;
            std::size_t linesAtMove = 0;
            std::vector<double> readStarts;
            fixture.controller->onCall([&](const kelvane::testing::RecordedCall& call) {
                if (call.method == move.moveMethod) {
                    fixture.clock->advance(100.0);  // a slow move must not eat into the deadline
                    moveReturned = fixture.clock->monotonic();
                    linesAtMove = fixture.log->lines().size();
                } else if (moveReturned > 0 && call.method == move.sensor) {
                    if (readStarts.empty()) fixture.clock->stepWallClock(wallStep);
                    readStarts.push_back(fixture.clock->monotonic() - moveReturned);
                    fixture.clock->advance(0.25);
                }
            });
            EXPECT_EQ(((*session).*move.start)(), move.timeoutResult);
            // Reads start every 0.75 s from the move's reply; exactly one starts past the deadline.
            ASSERT_EQ(readStarts.size(), std::size_t(std::ceil(move.deadline / 0.75)) + 1);
            for (size_t i = 0; i < readStarts.size(); ++i) EXPECT_EQ(readStarts[i], 0.75 * i);
            EXPECT_EQ(fixture.log->lines().size(), linesAtMove);  // nothing logged on timeout
        }
    }
}

TEST(TrayMotion, ClosingTheSessionEndsThePollAtItsNextStep) {
    SessionFixture fixture;
    auto session = readyToMove(fixture, moves[2], "in_done", {0});
    fixture.clock->atNextSleep([&] { session->close(); });
    EXPECT_EQ(session->trayIn(), moves[2].timeoutResult);
    EXPECT_EQ(fixture.controller->requests().size(), 5u);  // three sensors, the move, one read
}

// Each refusal reads only what it needs; sensors must answer the number 1, not the text "1".
// The last log line is the returned text with "\r", except for the DUT refusal.
TEST(TrayMotion, PreconditionsRefuseWithTheirTextAfterReadingOnlyWhatTheyNeed) {
    // The move, the sensors' answers, the refusal and the reads made.
    using Case =
        std::tuple<Value (FixtureControl::*)(), std::map<std::string, Value>, std::string, std::vector<std::string>>;
    const std::string in = "vantrel.in_sensor_read", up = "vantrel.up_sensor_read", down = "vantrel.down_sensor_read",
                      out = "vantrel.out_sensor_read", dut = "vantrel.dut_sensor_read",
                      dutWrong = "Can not down,Because DUT state is not right!", inFirst = "Please IN first!",
                      upFirst = "Please UP first!", isIn = "Current state is IN already!",
                      isOut = "Current state is OUT already!";
    const Case cases[] = {
        {&FixtureControl::trayDown, {{in, 0}}, inFirst, {in}},
        {&FixtureControl::trayDown, {{in, "1"}}, inFirst, {in}},
        {&FixtureControl::trayDown, {{in, 1}, {dut, "dut_sensor_off"}}, dutWrong, {in, dut}},
        {&FixtureControl::trayDown, {{in, 1}, {dut, "DUT_SENSOR_ON"}}, dutWrong, {in, dut}},
        {&FixtureControl::trayDown, {{in, 1}, {dut, "dut_sensor_on\r"}}, dutWrong, {in, dut}},
        {&FixtureControl::trayIn, {{up, "1"}}, upFirst, {up, in, down}},
        {&FixtureControl::trayIn, {{up, 1}, {in, 1}}, isIn, {up, in, down}},
        {&FixtureControl::trayIn, {{up, 1}, {down, 1}}, isIn, {up, in, down}},
        {&FixtureControl::trayOut, {{out, 1}, {down, 1}}, isOut, {out, down}},
        {&FixtureControl::trayOut, {{down, 1}}, upFirst, {out, down}},
    };
    for (const auto& [start, answers, result, reads] : cases) {
        SCOPED_TRACE(result + " after " + reads.back());
        SessionFixture fixture;
        auto session = fixture.connect();
        for (const auto& [method, answer] : answers) fixture.controller->answer(method, answer);
        EXPECT_EQ(((*session).*start)(), result);
        EXPECT_EQ(fixture.controller->requests(), reads);
        EXPECT_EQ(fixture.log->lines().back(), result == dutWrong ? "DUT state is not right!" : result + "\r");
    }
    SessionFixture fixture;  // the state read is logged as it came
    fixture.controller->answer(in, "1");
    auto session = fixture.connect();
    session->trayDown();
    EXPECT_THAT(fixture.log->lines(), ElementsAre("Fixture Down.", "Current state: 1\r", inFirst + "\r"));
}

TEST(MotionSensors, PositionSummaryUsesIntegerValuesInOrderAndTheDutReplyIsReturnedAsItCame) {
    SessionFixture fixture;
    auto session = fixture.connect();
    fixture.controller->answer("vantrel.in_sensor_read", 1);
    fixture.controller->answer("vantrel.out_sensor_read", "1");
    fixture.controller->answer("vantrel.up_sensor_read", 2);
    fixture.controller->fail("vantrel.down_sensor_read", {-32100, "timed out"});

    EXPECT_EQ(session->checkPositionSensor(), "1;1;2;0");
    EXPECT_THAT(fixture.controller->requests(), ElementsAre("vantrel.in_sensor_read", "vantrel.out_sensor_read",
                                                            "vantrel.up_sensor_read", "vantrel.down_sensor_read"));
    EXPECT_THAT(fixture.log->lines(), ElementsAre("IN_sensor_state: OK", "OUT_sensor_state: OK", "UP_sensor_state: NO",
                                                  "DOWN_sensor_state: NO"));

    for (Value reply : {Value("dut_sensor_off"), Value(), Value(7)}) {
        fixture.log->clear();
        fixture.controller->answer("vantrel.dut_sensor_read", reply);
        EXPECT_EQ(session->checkDUTSensor(), reply);
        EXPECT_THAT(fixture.log->lines(), ElementsAre("checkDUTSensor state is " + kelvane::describe(reply) + "\n"));
    }
}

TEST(MotionLockAndInit, OnlyExactOnAndOffDriveTheMagnetAndInitSendsTheTripleNestedIoList) {
    SessionFixture fixture;
    auto session = fixture.connect();
    fixture.controller->answer("vantrel.magnet_control", "magnet done");
    fixture.controller->answer("vantrel.fixture_io_set", "FAIL");
    EXPECT_EQ(session->fixtureLock("on"), "magnet done");
    EXPECT_EQ(session->fixtureLock("off"), "magnet done");
    for (const char* unknown : {"ON", "Off", "on "}) EXPECT_EQ(session->fixtureLock(unknown), "Unknown state!");
    EXPECT_EQ(session->fixtureInit(), "FAIL");  // not tested, handed back
    EXPECT_THAT(fixture.controller->requests(),
                ElementsAre(R"(vantrel.magnet_control ["on"])", R"(vantrel.magnet_control ["off"])",
                            R"(vantrel.fixture_io_set [[[[10,0]]]] {"timeout_ms":20000})"));
    EXPECT_THAT(fixture.log->lines(),
                ElementsAre("Fixture Lock!", "Fixture Unlock!", "Unknown state!", "Unknown state!", "Unknown state!",
                            "Fixture Init.",
                            "(\n        (\n                (\n            10,\n            0\n        )\n    )\n)",
                            "RRRRPPPPCCC!!!!!!", "FAIL", "(null)"));

    SessionFixture failing;
    failing.controller->fail("vantrel.fixture_io_set", {-32001, "controller busy"});
    auto busy = failing.connect();
    EXPECT_EQ(busy->fixtureInit(), Value());
    EXPECT_EQ(failing.log->lines().back(), "controller busy (code -32001)");
}
