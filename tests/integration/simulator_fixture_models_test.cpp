// The simulated fixture: tray, sensors, DUT presence, lock, fans, IO lines and LEDs.
#include "simulator_test_support.hpp"

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;

const Value outAndUp = {{"down", 0}, {"in", 0}, {"out", 1}, {"up", 1}};
const Value inAndUp = {{"down", 0}, {"in", 1}, {"out", 0}, {"up", 1}};
const Value inAndDown = {{"down", 1}, {"in", 1}, {"out", 0}, {"up", 0}};

class SimulatorTrayTest : public SimulatorTest {
protected:
    SimulatorTrayTest() : SimulatorTest({"--travel-ms", "150", "--lift-ms", "100"}) {}
    Value sensors() { return sim.control("sim.state")["sensors"]; }
    bool sensorsBecome(const Value& expected) {
        return eventually([&] { return sensors() == expected; });
    }
    void set(const Value& changes) { sim.control("sim.set", Value::array({changes})); }
};

TEST_F(SimulatorTrayTest, ForbiddenMovesAreRefusedWithoutMovingAndNothingIsActiveWhileTravelling) {
    EXPECT_EQ(call(m::fixtureDown), "down_refused: tray is not in");
    set({{"tray", {{"horizontal", "IN"}, {"vertical", "DOWN"}}}});
    EXPECT_EQ(call(m::fixtureOut), "out_refused: tray is not up");
    EXPECT_EQ(call(m::fixtureIn), "in_refused: tray is not up");
    EXPECT_EQ(sensors(), inAndDown);
    EXPECT_EQ(call(m::fixtureUp), "up_done") << "rising is always allowed";
    ASSERT_TRUE(sensorsBecome(inAndUp));

    set({{"travel_ms", 60000}});
    EXPECT_EQ(call(m::fixtureOut), "out_done");
    EXPECT_EQ(sensors(), (Value{{"down", 0}, {"in", 0}, {"out", 0}, {"up", 1}}));
    EXPECT_EQ(call(m::fixtureDown), "down_refused: tray is not in");
}

TEST_F(SimulatorTrayTest, StuckSensorReadsItsValueAndStalledMoveNeverCompletesUntilCleared) {
    set({{"stuck", {{"up", 0}, {"in", "1"}}}});
    EXPECT_EQ(call(m::upSensorRead), 0);
    EXPECT_EQ(call(m::inSensorRead), "1");
    EXPECT_EQ(call(m::fixtureIn), "in_done") << "a stuck sensor does not block the mechanics";
    set({{"stuck", nullptr}});
    ASSERT_TRUE(sensorsBecome(inAndUp));

    set({{"stall", "out"}, {"travel_ms", 0}});
    EXPECT_EQ(call(m::fixtureOut), "out_done");
    EXPECT_EQ(call(m::outSensorRead), 0) << "even an instant move stays under way";
    set({{"stall", nullptr}});
    ASSERT_TRUE(sensorsBecome(outAndUp));
}

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
    EXPECT_EQ(Value::array({state["initialised"], state["lock"]}), Value::array({true, "on"}));
    EXPECT_EQ(state["io"], (Value{{"10", 1}, {"11", 0}, {"12", 1}}));
    EXPECT_EQ(state["leds"], (Value{{"UUT2", {{"mode", "BLUE"}, {"blink", false}}},
                                    {"STATUS", {{"mode", "RED"}, {"blink", true}}}}));

    EXPECT_EQ(sim.control("sim.reset"), "done");
    state = sim.control("sim.state");
    EXPECT_EQ(Value::array({state["initialised"], state["lock"]}), Value::array({false, "off"}));
    EXPECT_TRUE(state["fans"].empty() && state["io"].empty() && state["leds"].empty());
}

// sim.set refuses what it does not know with an error, not a text.
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
    for (Value bad : {Value{{"stall", "sideways"}}, Value{{"gravity", 1}}, Value{{"travel_ms", -1}}}) {
        std::optional<RpcError> error;
        sim.control("sim.set", Value::array({bad}), &error);
        EXPECT_TRUE(error && error->code == jsonrpc::invalidParamsError) << bad.dump();
    }
    Value state = sim.control("sim.state");
    EXPECT_EQ(state["lock"], "off");
    EXPECT_TRUE(state["fans"].empty() && state["io"].empty() && state["leds"].empty());
}

// Fixture k of a station listens at 127.0.1.k with a world, scripts and journal of its own.
TEST(SimulatorStationTest, EachFixtureOfOneProcessKeepsItsOwnWorldScriptsAndJournal) {
    SimulatorProcess station(SimulatedStation{2}, {"--travel-ms", "0"});
    ASSERT_EQ(station.address(2), "127.0.1.2");
    auto first = RPCClientWrapper::initWithIP(station.address(1), station.port(1));
    auto second = RPCClientWrapper::initWithIP(station.address(2), station.port(2));
    station.control(2, "sim.script", Value::array({{{"method", m::serverMode}, {"reply", "scripted"}}}));
    station.control(2, "sim.set", Value::array({{{"dut", false}}}));
    EXPECT_EQ(second->call(std::string(m::fixtureIn), Value::array(), nullptr, nullptr), "in_done");
    EXPECT_EQ(first->call(std::string(m::serverMode), Value::array(), nullptr, nullptr), "normal");

    Value one = station.control(1, "sim.state"), two = station.control(2, "sim.state");
    EXPECT_EQ(Value::array({one["tray"]["horizontal"], one["dut"]}), Value::array({"OUT", true}));
    EXPECT_EQ(Value::array({two["tray"]["horizontal"], two["dut"]}), Value::array({"IN", false}));
    for (auto [fixture, method] : {std::pair{1, m::serverMode}, std::pair{2, m::fixtureIn}}) {
        Value journal = station.control(fixture, "sim.journal");
        EXPECT_TRUE(journal.size() == 1 && journal[0]["method"] == method) << fixture << journal.dump();
    }
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
