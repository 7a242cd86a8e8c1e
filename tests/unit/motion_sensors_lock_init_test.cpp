#include "session_fixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using kelvane::Value;
using kelvane::testing::SessionFixture;
using ::testing::ElementsAre;

TEST(MotionSensors, PositionSummaryUsesIntegerValuesInOrderAndOnlyOneCountsAsOk) {
    SessionFixture fixture;
    auto session = fixture.connect();
    fixture.controller->answer("vantrel.in_sensor_read", 1);
    fixture.controller->answer("vantrel.out_sensor_read", "1");
    fixture.controller->answer("vantrel.up_sensor_read", 2);
    fixture.controller->fail("vantrel.down_sensor_read", {-32000, "timed out"});

    EXPECT_EQ(session->checkPositionSensor(), "1;1;2;0");
    EXPECT_THAT(fixture.controller->methods(),
                ElementsAre("vantrel.in_sensor_read", "vantrel.out_sensor_read",
                            "vantrel.up_sensor_read", "vantrel.down_sensor_read"));
    EXPECT_THAT(fixture.log->lines(), ElementsAre("IN_sensor_state: OK", "OUT_sensor_state: OK",
                                                  "UP_sensor_state: NO", "DOWN_sensor_state: NO"));
}

TEST(MotionSensors, DutReplyIsReturnedAndLoggedAsItCame) {
    for (Value reply : {Value("dut_sensor_off"), Value(), Value(7)}) {
        SessionFixture fixture;
        auto session = fixture.connect();
        fixture.controller->answer("vantrel.dut_sensor_read", reply);
        EXPECT_EQ(session->checkDUTSensor(), reply);
        EXPECT_THAT(fixture.log->lines(), ElementsAre("checkDUTSensor state is " + kelvane::describe(reply) + "\n"));
    }
}

TEST(MotionLock, OnlyExactOnAndOffDriveTheMagnet) {
    SessionFixture fixture;
    auto session = fixture.connect();
    fixture.controller->answer("vantrel.magnet_control", "magnet done");
    EXPECT_EQ(session->fixtureLock("on"), "magnet done");
    EXPECT_EQ(session->fixtureLock("off"), "magnet done");
    for (const char* unknown : {"ON", "Off", "on "}) EXPECT_EQ(session->fixtureLock(unknown), "Unknown state!");

    std::vector<std::string> sent;
    for (const auto& call : fixture.controller->calls()) sent.push_back(call.method + call.args.dump());
    EXPECT_THAT(sent, ElementsAre(R"(vantrel.magnet_control["on"])", R"(vantrel.magnet_control["off"])"));
    EXPECT_THAT(fixture.log->lines(), ElementsAre("Fixture Lock!", "Fixture Unlock!", "Unknown state!",
                                                  "Unknown state!", "Unknown state!"));
}

TEST(MotionInit, SendsTheTripleNestedIoListAndLogsReplyAndError) {
    SessionFixture fixture;
    auto session = fixture.connect();
    fixture.controller->answer("vantrel.fixture_io_set", "FAIL");
    EXPECT_EQ(session->fixtureInit(), "FAIL");  // not tested, handed back
    auto call = fixture.controller->calls().at(0);
    EXPECT_EQ(call.method, "vantrel.fixture_io_set");
    EXPECT_EQ(call.args, Value::parse("[[[[10,0]]]]"));
    EXPECT_EQ(call.kwargs, Value::parse(R"({"timeout_ms":20000})"));
    EXPECT_TRUE(call.kwargs["timeout_ms"].is_number_integer());
    EXPECT_THAT(fixture.log->lines(),
                ElementsAre("Fixture Init.", "[[[10,0]]]", "RRRRPPPPCCC!!!!!!", "FAIL", "(null)"));

    SessionFixture failing;
    failing.controller->fail("vantrel.fixture_io_set", {-32001, "controller busy"});
    auto busy = failing.connect();
    EXPECT_EQ(busy->fixtureInit(), Value());
    EXPECT_EQ(failing.log->lines().back(), "controller busy (code -32001)");
}
