// The simulated CAN bridge and TEC controllers in process, fed the frames the library cuts and
// read back through the library's receiver; faults injected, time moved by the test.
#include "in_process_fixture.hpp"
#include "virtual_clock.hpp"

#include "can/bridge.hpp"

#include <regex>

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;
using namespace std::chrono_literals;

constexpr int slotOneId = 2080;

class SimulatedCanTest : public ::testing::Test {
protected:
    std::vector<can::Frame> frames(const std::string& command) { return bridge.framesForCommand(command, 1); }
    void send(int slot, const std::vector<can::Frame>& frames) {
        for (const auto& frame : frames)
            ASSERT_EQ(fixture.call(m::canSend, {slotOneId + slot - 1, frame, "EXTEND"}), "done");
    }
    std::string exchange(int slot, const std::string& command) {
        send(slot, frames(command));
        return bridge.receiveAnswer(slot);
    }
    Value slotState(int slot) { return fixture.call(m::sim::state)["tec"][std::to_string(slot)]; }

    InProcessFixture fixture;
    // No slot folders below the file root: the monitor logs' lines are lost.
    Platform platform{std::make_shared<VirtualClock>(), std::make_shared<CapturingLog>(), "/nonexistent", nullptr};
    can::Bridge bridge{platform, fixture.client(), Value("Fixture1")};
};

TEST_F(SimulatedCanTest, ControllersReassembleEveryFrameShapeAndAnswerInFrames) {
    EXPECT_EQ(fixture.call(m::canOpen, {500000}, {{"timeout_ms", 3000}}), "done");
    const std::regex power(R"(TEC : 12\.00 V, \d+\.\d\d A, \d+\.\d\d W ,PWM: -\d+\.\d\d% OK\x03)");
    const std::pair<const char*, int> shapes[] = {
        {"ver", 1}, {"get ver", 2}, {"get tec power", 3}, {"set tec target:25.00 C", 4}};
    for (const auto& [command, count] : shapes) {
        const int before = slotState(3)["frames_in"].get<int>();
        const std::string answer = exchange(3, command);
        EXPECT_EQ(slotState(3)["last_command"], command);
        EXPECT_EQ(slotState(3)["frames_in"], before + count) << command;
        if (count == 3)
            EXPECT_TRUE(std::regex_match(answer, power)) << answer << " (cooling: PWM negative)";
        else
            EXPECT_EQ(answer, "ERR\x03") << command << ": unknown commands get no OK";
    }

    auto iso = frames("set tec target:25.00 C");
    iso[2][0] = 0x22, iso[3][0] = 0x23;
    send(3, iso);
    EXPECT_EQ(bridge.receiveAnswer(3), "") << "an ISO-style sequence is not the controllers' shape";
    EXPECT_EQ(slotState(3)["rejected_frames"], 2) << "the 0x22 out of turn, then the 0x23";
    EXPECT_EQ(fixture.call(m::canSend, {slotOneId, frames("get tec power")[0]}),
              "can_send_refused: the message id needs \"EXTEND\" (above 0x7FF)");
}

TEST_F(SimulatedCanTest, FaultsApplyToTheirSlotAndCommandForTheirTimesUntilReset) {
    Value faults = Value::array({
        {{"kind", "fail"}, {"slot", 1}, {"command", "get tec power"}, {"times", 1}},
        {{"kind", "low_reading"}, {"slot", 1}},
        {{"kind", "low_reading"}, {"slot", 1}, {"sensor", 3}},
        {{"kind", "empty_answer"}, {"slot", 2}, {"command", "get tec temp:2"}},
        {{"kind", "no_answer"}, {"slot", 2}},
        {{"kind", "recv_nothing"}, {"slot", 3}, {"times", 1}},
        {{"kind", "send_refused"}, {"slot", 4}, {"times", 1}},
        {{"kind", "send_error"}, {"slot", 4}, {"times", 1}},
        {{"kind", "no_ok"}, {"slot", 4}},
        {{"kind", "sensor_offset"}, {"slot", 4}},
    });
    EXPECT_EQ(fixture.call(m::sim::set, Value::array({{{"tec_faults", faults}}})), "done");

    EXPECT_TRUE(exchange(1, "get tec power").ends_with("% FAIL\x03"));
    EXPECT_TRUE(exchange(1, "get tec power").ends_with("% OK\x03")) << "used up after one time";
    for (auto command : {"get tec temp:1", "get tec temp:3", "get tec temp:3"})  // without times: until cleared
        EXPECT_EQ(exchange(1, command), "TEC temp: 18.00 C OK\x03") << command;
    EXPECT_EQ(exchange(2, "get tec temp:1"), "") << "nothing queued: can.recv answers {}";
    send(2, frames("get tec temp:2"));
    EXPECT_EQ(fixture.call(m::canRecv), (Value{{"data", {0, 3}}})) << "an empty answer: one frame without text";
    send(3, frames("get ver"));
    EXPECT_TRUE(fixture.call(m::canRecv).is_null()) << "the frame waits, the bridge reports nothing";
    EXPECT_EQ(bridge.receiveAnswer(3), "ERR\x03");
    EXPECT_EQ(fixture.call(m::canSend, {slotOneId + 3, frames("ver")[0], "EXTEND"}), "busy");
    EXPECT_EQ(fixture.failure(m::canSend, {slotOneId + 3, frames("ver")[0], "EXTEND"}), -32000);
    EXPECT_TRUE(exchange(4, "get tec power").ends_with("%\x03")) << "no OK";
    std::string one = exchange(4, "get tec temp:1"), two = exchange(4, "get tec temp:2");
    EXPECT_GT(std::stod(two.substr(10)) - std::stod(one.substr(10)), 3.0) << one << " / " << two;
    EXPECT_EQ(slotState(1)["faults"].size(), 2u);

    fixture.call(m::sim::reset);
    EXPECT_TRUE(exchange(1, "get tec temp:3").starts_with("TEC temp: 2"));
    EXPECT_NE(exchange(2, "get tec temp:1"), "");
}

// The sensors settle from the ambient (27 °C) toward the set point, sensor 4 1.2 °C warmer.
TEST_F(SimulatedCanTest, SensorsSettleTowardANewSetPointOverTime) {
    EXPECT_EQ(slotState(2)["temperatures"], Value::array({27.0, 27.0, 27.0, 28.2}));
    fixture.call(m::sim::set, {{{"tec_set_points", {{"2", 30.0}}}}});
    fixture.advance(8s);
    const Value halfway = slotState(2)["temperatures"];
    EXPECT_TRUE(halfway[0] > halfway[1] && halfway[1] > 28.5 && halfway[3] < 29.8) << halfway.dump();
    fixture.advance(2min);
    EXPECT_EQ(slotState(2)["temperatures"], Value::array({30.0, 30.0, 30.0, 31.2}));
    EXPECT_EQ(slotState(1)["temperatures"], Value::array({25.0, 25.0, 25.0, 26.2})) << "slot 1 kept 25 °C";
}

}  // namespace
}  // namespace kelvane::testing
