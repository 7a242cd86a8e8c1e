// The fixture's other parts: session, DUT presence, lock, fans, IO lines and LEDs.
#include "simulator_test_support.hpp"

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;

using SimulatorModelsTest = SimulatorTest;

TEST_F(SimulatorModelsTest, EachPartAnswersAndKeepsItsStateUntilReset) {
    EXPECT_EQ(call(m::serverMode), "normal");
    EXPECT_EQ(call(m::fixtureInitialise), "done");
    EXPECT_EQ(call(m::magnetControl, {"on"}), "done");
    EXPECT_EQ(call(m::setFanSpeed, {1, 60}), "done");
    EXPECT_EQ(call(m::getFanSpeed, {1}), 60);
    EXPECT_EQ(call(m::getFanSpeed, {2}), 0) << "a fan never set reads 0";
    EXPECT_EQ(call(m::fixtureIoSet, {{{10, 1}, {11, 0}}}, {{"timeout_ms", 20000}}), "done");
    EXPECT_EQ(call(m::fixtureIoSet, {{{{12, 1}}}}), "done") << "one level deeper";
    EXPECT_EQ(call(m::ledControl, {"UUT2", "BLUE"}), "done");
    EXPECT_EQ(call(m::ledBlinkControl, {"STATUS", "RED"}), "done");

    Value state = sim.control("sim.state");
    EXPECT_EQ(state["initialised"], true);
    EXPECT_EQ(state["lock"], "on");
    EXPECT_EQ(state["io"], (Value{{"10", 1}, {"11", 0}, {"12", 1}}));
    EXPECT_EQ(state["leds"], (Value{{"UUT2", {{"mode", "BLUE"}, {"blink", false}}},
                                    {"STATUS", {{"mode", "RED"}, {"blink", true}}}}));

    EXPECT_EQ(sim.control("sim.reset"), "done");
    state = sim.control("sim.state");
    EXPECT_EQ(state["initialised"], false);
    EXPECT_EQ(state["lock"], "off");
    EXPECT_TRUE(state["fans"].empty() && state["io"].empty() && state["leds"].empty());
}

TEST_F(SimulatorModelsTest, MalformedArgumentsAreRefusedWithATextAndChangeNothing) {
    const std::vector<std::pair<std::string_view, Value>> malformed = {
        {m::magnetControl, {"ON"}},        {m::magnetControl, Value::array()},
        {m::setFanSpeed, {1, "fast"}},     {m::setFanSpeed, {1, 2.5}},
        {m::fixtureIoSet, {{10, 1}}},      {m::fixtureIoSet, {{{10, 1}, {11}}}},
        {m::ledControl, {"UUT", "BLUE"}},  {m::ledControl, {"slot1", "BLUE"}},
        {m::ledBlinkControl, {"UUT1"}},
    };
    for (const auto& [method, params] : malformed)
        EXPECT_TRUE(describedContains(call(method, params), "_refused: ")) << method << params.dump();
    Value state = sim.control("sim.state");
    EXPECT_EQ(state["lock"], "off");
    EXPECT_TRUE(state["fans"].empty() && state["io"].empty() && state["leds"].empty());
}

class SimulatorWithoutDutTest : public SimulatorTest {
protected:
    SimulatorWithoutDutTest() : SimulatorTest({"--dut", "absent"}) {}
};

TEST_F(SimulatorWithoutDutTest, DutAbsentOptionHoldsFromStartAndAfterReset) {
    EXPECT_EQ(call(m::dutSensorRead), "dut_sensor_off");
    sim.control("sim.set", {{{"dut", true}}});
    EXPECT_EQ(call(m::dutSensorRead), "dut_sensor_on");
    sim.control("sim.reset");
    EXPECT_EQ(call(m::dutSensorRead), "dut_sensor_off");
}

}  // namespace
}  // namespace kelvane::testing
