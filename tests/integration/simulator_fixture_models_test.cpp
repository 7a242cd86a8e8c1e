// The fixture's other parts: session, DUT presence, lock, fans, IO lines and LEDs.
#include "simulator_test_support.hpp"

#include "rpc/methods.hpp"

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;

using SimulatorModelsTest = SimulatorTest;

TEST_F(SimulatorModelsTest, EachPartAnswersAndKeepsItsStateUntilReset) {
    EXPECT_EQ(call(std::string(m::serverMode)), "normal");
    EXPECT_EQ(call(std::string(m::fixtureInitialise)), "done");
    EXPECT_EQ(call(std::string(m::dutSensorRead)), "dut_sensor_on");
    EXPECT_EQ(call(std::string(m::magnetControl), {"on"}), "done");
    EXPECT_EQ(call(std::string(m::setFanSpeed), {1, 60}), "done");
    EXPECT_EQ(call(std::string(m::getFanSpeed), {1}), 60);
    EXPECT_EQ(call(std::string(m::getFanSpeed), {2}), 0) << "a fan never set reads 0";
    EXPECT_EQ(call(std::string(m::fixtureIoSet), {{{10, 1}, {11, 0}}}, {{"timeout_ms", 20000}}), "done");
    EXPECT_EQ(call(std::string(m::fixtureIoSet), {{{{12, 1}}}}), "done") << "one level deeper";
    EXPECT_EQ(call(std::string(m::ledControl), {"UUT2", "BLUE"}), "done");
    EXPECT_EQ(call(std::string(m::ledBlinkControl), {"STATUS", "RED"}), "done");

    Value state = sim.control("sim.state");
    EXPECT_EQ(state["initialised"], true);
    EXPECT_EQ(state["lock"], "on");
    EXPECT_EQ(state["fans"], (Value{{"1", 60}}));
    EXPECT_EQ(state["io"], (Value{{"10", 1}, {"11", 0}, {"12", 1}}));
    EXPECT_EQ(state["leds"], (Value{{"UUT2", {{"mode", "BLUE"}, {"blink", false}}},
                                    {"STATUS", {{"mode", "RED"}, {"blink", true}}}}));

    sim.control("sim.set", {{{"dut", false}}});
    EXPECT_EQ(call(std::string(m::dutSensorRead)), "dut_sensor_off");

    EXPECT_EQ(sim.control("sim.reset"), "done");
    state = sim.control("sim.state");
    EXPECT_EQ(state["initialised"], false);
    EXPECT_EQ(state["lock"], "off");
    EXPECT_EQ(state["dut"], true);
    EXPECT_TRUE(state["fans"].empty() && state["io"].empty() && state["leds"].empty());
}

TEST_F(SimulatorModelsTest, MalformedArgumentsAreRefusedWithATextAndChangeNothing) {
    auto refused = [](const Value& reply) { return describedContains(reply, "_refused: "); };
    EXPECT_TRUE(refused(call(std::string(m::magnetControl), {"ON"})));
    EXPECT_TRUE(refused(call(std::string(m::magnetControl))));
    EXPECT_TRUE(refused(call(std::string(m::setFanSpeed), {1, "fast"})));
    EXPECT_TRUE(refused(call(std::string(m::setFanSpeed), {1, 2.5})));
    EXPECT_TRUE(refused(call(std::string(m::getFanSpeed), {"1"})));
    EXPECT_TRUE(refused(call(std::string(m::fixtureIoSet), {{10, 1}})));
    EXPECT_TRUE(refused(call(std::string(m::fixtureIoSet), {{{10, 1}, {11}}})));
    EXPECT_TRUE(refused(call(std::string(m::fixtureIoSet), {Value::array()})));
    EXPECT_TRUE(refused(call(std::string(m::ledControl), {"UUT", "BLUE"})));
    EXPECT_TRUE(refused(call(std::string(m::ledControl), {"slot1", "BLUE"})));
    EXPECT_TRUE(refused(call(std::string(m::ledBlinkControl), {"UUT1"})));

    Value state = sim.control("sim.state");
    EXPECT_EQ(state["lock"], "off");
    EXPECT_TRUE(state["fans"].empty() && state["io"].empty() && state["leds"].empty());
}

class SimulatorWithoutDutTest : public SimulatorTest {
protected:
    SimulatorWithoutDutTest() : SimulatorTest({"--dut", "absent"}) {}
};

TEST_F(SimulatorWithoutDutTest, DutAbsentOptionHoldsFromStartAndAfterReset) {
    EXPECT_EQ(call(std::string(m::dutSensorRead)), "dut_sensor_off");
    sim.control("sim.set", {{{"dut", true}}});
    EXPECT_EQ(call(std::string(m::dutSensorRead)), "dut_sensor_on");
    sim.control("sim.reset");
    EXPECT_EQ(call(std::string(m::dutSensorRead)), "dut_sensor_off");
}

}  // namespace
}  // namespace kelvane::testing
