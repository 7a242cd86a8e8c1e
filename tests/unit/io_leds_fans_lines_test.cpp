#include "session_fixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using kelvane::Value;
using kelvane::testing::SessionFixture;
using ::testing::ElementsAre;

TEST(IoLedsAndFans, LedModesAreUpperCasedFanSetsNeedDoneAndFanReadsReturnTheReplyText) {
    SessionFixture fixture;
    auto session = fixture.connect();
    session->uutLed(2, "blue");
    session->uutLedBlink(3, "Green");
    session->stateLed("red");
    for (auto [reply, expected] :
         {std::pair{Value("done\r\n"), true}, {Value("not done"), true}, {Value("FAIL"), false}, {Value(), false}}) {
        fixture.controller->forget("vantrel.set_fan_speed");
        fixture.controller->answer("vantrel.set_fan_speed", reply);
        EXPECT_EQ(session->setFanSpeed(1, 3000), expected) << reply.dump();
    }
    fixture.controller->answer("vantrel.get_fan_speed", 2500);
    EXPECT_EQ(session->getFanSpeed(2), "2500");
    const auto requests = fixture.controller->requests();
    EXPECT_EQ(std::vector(requests.begin(), requests.begin() + 4),
              (std::vector<std::string>{R"(vantrel.led_control ["UUT2","BLUE"])",
                                        R"(vantrel.led_blink_control ["UUT3","GREEN"])",
                                        R"(vantrel.led_control ["STATUS","RED"])", "vantrel.set_fan_speed [1,3000]"}));
    EXPECT_EQ(requests.back(), "vantrel.get_fan_speed [2]");
    EXPECT_THAT(fixture.log->lines(),
                ElementsAre("slot2 LED: blue", "slot3 LedBlink: Green", "STATUS LED: red", "detFan2 to Speed"));
}

TEST(IoLines, SetIoSendsOneListOfOnePairAndTellsDoneErrorAndFailApart) {
    using Case = std::pair<kelvane::testing::ScriptedAnswer, Value>;  // the controller's answer, the result
    const kelvane::RpcError busy{-32001, "controller busy"};
    for (const auto& [answer, result] :
         {Case{{"io done", {}}, "io done"}, Case{{"not done", busy}, "not done"}, Case{{"FAIL", {}}, "Fail"},
          Case{{nullptr, {}}, "Fail"}, Case{{"FAIL", busy}, busy.text()}, Case{{nullptr, busy}, busy.text()}}) {
        SessionFixture fixture;
        auto session = fixture.connect();
        fixture.controller->answer("vantrel.fixture_io_set", answer);
        EXPECT_EQ(session->setIO(10, 1), result);
        EXPECT_THAT(fixture.controller->requests(),
                    ElementsAre(R"(vantrel.fixture_io_set [[[10,1]]] {"timeout_ms":20000})"));
        EXPECT_EQ(fixture.log->lines().back(), result == busy.text() ? busy.text() : "Fixture setIO.");
    }
}
