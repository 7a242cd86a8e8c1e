#include "session_fixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

using kelvane::FixtureControl;
using kelvane::Value;
using kelvane::testing::SessionFixture;
using ::testing::ElementsAre;

namespace {

struct Move {
    Value (FixtureControl::*start)();
    std::map<std::string, Value> ready;  // sensor answers that let the move start
    std::string moveMethod, ack, sensor;
    double deadline;
    std::string successLog, successResult, timeoutResult;
};

const std::string fullWidthBang = "\xEF\xBC\x81";

const std::vector<Move> moves = {
    {&FixtureControl::trayUp, {},
     "vantrel.fixture_up", "up_done", "vantrel.up_sensor_read", 5.0, "UP OK\r", "UP OK",
     "Fixture up action is executed,but up sensor is not OK" + fullWidthBang},
    {&FixtureControl::trayDown,
     {{"vantrel.in_sensor_read", 1}, {"vantrel.dut_sensor_read", "dut_sensor_on"}},
     "vantrel.fixture_down", "down_done", "vantrel.down_sensor_read", 5.0, "DOWN OK.\r", "DOWN OK",
     "Fixture down action is executed,but down sensor is not OK" + fullWidthBang},
    {&FixtureControl::trayIn, {{"vantrel.up_sensor_read", 1}, {"vantrel.in_sensor_read", 0}},
     "vantrel.fixture_in", "in_done", "vantrel.in_sensor_read", 15.0, "IN OK.\r", "IN OK",
     "Fixture in action is executed,but down sensor is not OK" + fullWidthBang},
    {&FixtureControl::trayOut, {{"vantrel.out_sensor_read", 0}},
     "vantrel.fixture_out", "out_done", "vantrel.out_sensor_read", 15.0, "OUT OK.\r", "OUT OK",
     "Fixture out action is executed,but out sensor is not OK" + fullWidthBang},
};

// A connected session whose controller lets `move` start and acknowledges it with `moveReply`;
// the target sensor answers the given readings in order.
std::shared_ptr<FixtureControl> readyToMove(SessionFixture& fixture, const Move& move,
                                            Value moveReply, std::vector<Value> readings = {}) {
    auto session = fixture.connect();
    for (const auto& [method, answer] : move.ready) fixture.controller->answer(method, answer);
    fixture.controller->answer(move.moveMethod, moveReply);
    for (auto& reading : readings) fixture.controller->answer(move.sensor, reading);
    return session;
}

long countCalls(const SessionFixture& fixture, const std::string& method) {
    auto names = fixture.controller->methods();
    return std::count(names.begin(), names.end(), method);
}

}  // namespace

TEST(TrayMotion, ReplyThatIsNotTheExactAcknowledgementIsReturnedWithoutPolling) {
    for (const auto& move : moves) {
        for (Value reply :
             {Value(), Value(move.ack + "\r"), Value(kelvane::upperCased(move.ack)), Value(1)}) {
            SCOPED_TRACE(move.moveMethod + " answered " + reply.dump());
            SessionFixture fixture;
            auto session = readyToMove(fixture, move, reply, {1});
            EXPECT_EQ(((*session).*move.start)(), reply);
            EXPECT_EQ(fixture.controller->methods().back(), move.moveMethod);
        }
    }
}

TEST(TrayMotion, SuccessOnlyWhenTheTargetSensorAnswersTheNumberOne) {
    for (const auto& move : moves) {
        SCOPED_TRACE(move.moveMethod);
        SessionFixture fixture;
        auto session = readyToMove(fixture, move, move.ack, {0, "1", Value(), 1});
        EXPECT_EQ(((*session).*move.start)(), move.successResult);
        EXPECT_EQ(countCalls(fixture, move.sensor) - (move.ready.count(move.sensor) ? 1 : 0), 4);
        EXPECT_THAT(fixture.clock->sleeps(), ElementsAre(0.5, 0.5, 0.5));
        EXPECT_EQ(fixture.log->lines().back(), move.successLog);
        for (const auto& call : fixture.controller->calls()) {
            EXPECT_EQ(call.args, Value::array()) << call.method;
            EXPECT_TRUE(call.kwargs.is_null()) << call.method;
        }
    }
}

TEST(TrayMotion, DeadlineCountsFromTheMoveReplyAndAllowsOneReadPastIt) {
    for (const auto& move : moves) {
        SCOPED_TRACE(move.moveMethod);
        SessionFixture fixture;
        auto session = readyToMove(fixture, move, move.ack, {0});
        double moveReturned = 0;
        size_t linesAtMove = 0;
        std::vector<double> readStarts;
        fixture.controller->onCall([&](const kelvane::testing::RecordedCall& call) {
            if (call.method == move.moveMethod) {
                fixture.clock->advance(100.0);  // a slow move must not eat into the deadline
                moveReturned = fixture.clock->now();
                linesAtMove = fixture.log->lines().size();
            } else if (moveReturned > 0 && call.method == move.sensor) {
                readStarts.push_back(fixture.clock->now() - moveReturned);
                fixture.clock->advance(0.25);
            }
        });
        EXPECT_EQ(((*session).*move.start)(), move.timeoutResult);
        // Reads start every 0.75 s from the move's reply; exactly one starts past the deadline.
        ASSERT_GE(readStarts.size(), 2u);
        for (size_t i = 0; i < readStarts.size(); ++i) EXPECT_EQ(readStarts[i], 0.75 * i);
        EXPECT_LT(readStarts[readStarts.size() - 2], move.deadline);
        EXPECT_GE(readStarts.back(), move.deadline);
        EXPECT_LT(readStarts.back(), move.deadline + 0.5);
        EXPECT_EQ(fixture.log->lines().size(), linesAtMove);  // nothing logged on timeout
    }
}

TEST(TrayMotion, DownNeedsTheTrayInAndAPresentDut) {
    for (Value in : {Value(0), Value("1"), Value()}) {
        SessionFixture fixture;
        auto session = fixture.connect();
        fixture.controller->answer("vantrel.in_sensor_read", in);
        EXPECT_EQ(session->trayDown(), "Please IN first!");
        EXPECT_THAT(fixture.controller->methods(), ElementsAre("vantrel.in_sensor_read"));
        EXPECT_THAT(fixture.log->lines(),
                    ElementsAre("Fixture Down.", "Current state: " + kelvane::describe(in) + "\r",
                                "Please IN first!\r"));
    }
    for (Value dut : {Value("dut_sensor_off"), Value("DUT_SENSOR_ON"), Value()}) {
        SessionFixture fixture;
        auto session = fixture.connect();
        fixture.controller->answer("vantrel.in_sensor_read", 1);
        fixture.controller->answer("vantrel.dut_sensor_read", dut);
        EXPECT_EQ(session->trayDown(), "Can not down,Because DUT state is not right!");
        EXPECT_THAT(fixture.controller->methods(),
                    ElementsAre("vantrel.in_sensor_read", "vantrel.dut_sensor_read"));
        EXPECT_THAT(fixture.log->lines(),
                    ElementsAre("Fixture Down.", "Current state: 1\r", "DOWN",
                                "checkDUTSensor state is " + kelvane::describe(dut) + "\n",
                                "DUT state is not right!"));
    }
}

TEST(TrayMotion, InNeedsUpAndTreatsInOrDownAsAlreadyIn) {
    struct Case { Value up, in, down; std::string result; };
    for (const auto& c : {Case{0, 0, 0, "Please UP first!"}, Case{"1", 0, 0, "Please UP first!"},
                          Case{1, 1, 0, "Current state is IN already!"},
                          Case{1, 0, 1, "Current state is IN already!"}}) {
        SessionFixture fixture;
        auto session = fixture.connect();
        fixture.controller->answer("vantrel.up_sensor_read", c.up);
        fixture.controller->answer("vantrel.in_sensor_read", c.in);
        fixture.controller->answer("vantrel.down_sensor_read", c.down);
        EXPECT_EQ(session->trayIn(), c.result);
        EXPECT_THAT(fixture.controller->methods(),
                    ElementsAre("vantrel.up_sensor_read", "vantrel.in_sensor_read",
                                "vantrel.down_sensor_read"));
        EXPECT_THAT(fixture.log->lines(),
                    ElementsAre("Fixture IN.", "Current state: " + kelvane::describe(c.up) + "\r",
                                c.result + "\r"));
    }
}

TEST(TrayMotion, OutIsRefusedWhenAlreadyOutFirstThenWhenDown) {
    struct Case { Value out, down; std::string result; };
    for (const auto& c :
         {Case{1, 1, "Current state is OUT already!"}, Case{0, 1, "Please UP first!"}}) {
        SessionFixture fixture;
        auto session = fixture.connect();
        fixture.controller->answer("vantrel.out_sensor_read", c.out);
        fixture.controller->answer("vantrel.down_sensor_read", c.down);
        EXPECT_EQ(session->trayOut(), c.result);
        EXPECT_THAT(fixture.controller->methods(),
                    ElementsAre("vantrel.out_sensor_read", "vantrel.down_sensor_read"));
        EXPECT_THAT(fixture.log->lines(), ElementsAre("Fixture OUT.", c.result + "\r"));
    }
}
