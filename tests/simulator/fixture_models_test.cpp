// The simulated fixture in process: tray, sensors, DUT presence, lock, fans, IO lines and LEDs,
// on a clock the test moves.
#include "in_process_fixture.hpp"

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;
using namespace std::chrono_literals;

const Value outAndUp = {{"down", 0}, {"in", 0}, {"out", 1}, {"up", 1}};
const Value inAndUp = {{"down", 0}, {"in", 1}, {"out", 0}, {"up", 1}};
const Value inAndDown = {{"down", 1}, {"in", 1}, {"out", 0}, {"up", 0}};

class SimulatedTrayTest : public ::testing::Test {
protected:
    Value sensors() { return fixture.call(m::sim::state)["sensors"]; }
    void set(const Value& changes) { fixture.call(m::sim::set, Value::array({changes})); }

    InProcessFixture fixture{{.travel = 150ms, .lift = 100ms}};
};

TEST_F(SimulatedTrayTest, ForbiddenMovesAreRefusedNothingIsActiveWhileTravellingStuckAndStalledHoldTillCleared) {
    EXPECT_EQ(fixture.call(m::fixtureDown), "down_refused: tray is not in");
    set({{"tray", {{"horizontal", "IN"}, {"vertical", "DOWN"}}}});
    EXPECT_EQ(fixture.call(m::fixtureOut), "out_refused: tray is not up");
    EXPECT_EQ(fixture.call(m::fixtureIn), "in_refused: tray is not up");
    EXPECT_EQ(sensors(), inAndDown);
    EXPECT_EQ(fixture.call(m::fixtureUp), "up_done") << "rising is always allowed";
    EXPECT_EQ(fixture.call(m::fixtureIn), "in_refused: tray is not up") << "not while rising";
    fixture.advance(99ms);
    EXPECT_EQ(sensors(), (Value{{"down", 0}, {"in", 1}, {"out", 0}, {"up", 0}}));
    fixture.advance(1ms);
    EXPECT_EQ(sensors(), inAndUp);

    EXPECT_EQ(fixture.call(m::fixtureOut), "out_done");
    fixture.advance(100ms);
    EXPECT_EQ(fixture.call(m::fixtureOut), "out_done") << "repeated: the move under way goes on";
    EXPECT_EQ(fixture.call(m::fixtureDown), "down_refused: tray is not in");
    fixture.advance(50ms);
    EXPECT_EQ(sensors(), outAndUp);
    EXPECT_EQ(fixture.call(m::fixtureIn), "in_done");
    fixture.advance(100ms);
    EXPECT_EQ(fixture.call(m::fixtureOut), "out_done") << "reversed: starts over";
    fixture.advance(149ms);
    EXPECT_EQ(sensors(), (Value{{"down", 0}, {"in", 0}, {"out", 0}, {"up", 1}}));
    fixture.advance(1ms);
    EXPECT_EQ(sensors(), outAndUp);

    // A stuck sensor reads its value, a stalled move never completes, until each is cleared.
    set({{"stuck", {{"up", 0}, {"in", "1"}}}});
    EXPECT_EQ(fixture.call(m::upSensorRead), 0);
    EXPECT_EQ(fixture.call(m::inSensorRead), "1");
    EXPECT_EQ(fixture.call(m::fixtureIn), "in_done") << "a stuck sensor does not block the mechanics";
    fixture.advance(150ms);
    set({{"stuck", nullptr}});
    EXPECT_EQ(sensors(), inAndUp);

    set({{"stall", "out"}, {"travel_ms", 0}});
    EXPECT_EQ(fixture.call(m::fixtureOut), "out_done");
    fixture.advance(24h);
    EXPECT_EQ(fixture.call(m::outSensorRead), 0) << "even an instant move stays under way";
    EXPECT_EQ(fixture.call(m::sim::state)["tray"]["moving"]["stalled"], true);
    set({{"stall", nullptr}});
    EXPECT_EQ(sensors(), outAndUp);
}

// Malformed arguments get a text, sim.set what it does not know an error; neither changes anything.
TEST(SimulatedFixtureTest, EachPartRefusesMalformedArgumentsAnswersAndKeepsItsStateUntilReset) {
    InProcessFixture fixture;
    auto expectUntouched = [&] {
        Value state = fixture.call(m::sim::state);
        EXPECT_EQ(Value::array({state["initialised"], state["lock"], state["dut"]}),
                  Value::array({false, "off", true}));
        EXPECT_TRUE(state["fans"].empty() && state["io"].empty() && state["leds"].empty());
    };
    const std::vector<std::pair<std::string_view, Value>> malformed = {
        {m::magnetControl, {"ON"}},       {m::magnetControl, Value::array()}, {m::setFanSpeed, {1, "fast"}},
        {m::setFanSpeed, {1, 2.5}},       {m::fixtureIoSet, {{10, 1}}},       {m::fixtureIoSet, {{{10, 1}, {11}}}},
        {m::ledControl, {"UUT", "BLUE"}}, {m::ledControl, {"slot1", "BLUE"}}, {m::ledBlinkControl, {"UUT1"}},
    };
    for (const auto& [method, params] : malformed)
        EXPECT_TRUE(describedContains(fixture.call(method, params), "_refused: ")) << method << params.dump();
    for (Value bad : {Value{{"stall", "sideways"}}, Value{{"gravity", 1}}, Value{{"travel_ms", -1}}}) {
        EXPECT_EQ(fixture.failure(m::sim::set, Value::array({bad})), jsonrpc::invalidParamsError) << bad.dump();
    }
    expectUntouched();

    EXPECT_EQ(fixture.call(m::serverMode), "normal");
    EXPECT_EQ(fixture.call(m::fixtureInitialise), "done");
    EXPECT_EQ(fixture.call(m::magnetControl, {"on"}), "done");
    EXPECT_EQ(fixture.call(m::setFanSpeed, {1, 60}), "done");
    EXPECT_EQ(fixture.call(m::getFanSpeed, {1}), 60);
    EXPECT_EQ(fixture.call(m::getFanSpeed, {2}), 0) << "a fan never set reads 0";
    EXPECT_EQ(fixture.call(m::fixtureIoSet, {{{10, 1}, {11, 0}}}, {{"timeout_ms", 20000}}), "done");
    EXPECT_EQ(fixture.call(m::fixtureIoSet, {{{{12, 1}}}}), "done") << "one level deeper";
    EXPECT_EQ(fixture.call(m::ledControl, {"UUT2", "BLUE"}), "done");
    EXPECT_EQ(fixture.call(m::ledBlinkControl, {"STATUS", "RED"}), "done");
    EXPECT_EQ(fixture.call(m::dutSensorRead), "dut_sensor_on");
    fixture.call(m::sim::set, {{{"dut", false}}});
    EXPECT_EQ(fixture.call(m::dutSensorRead), "dut_sensor_off");

    Value state = fixture.call(m::sim::state);
    EXPECT_EQ(Value::array({state["initialised"], state["lock"]}), Value::array({true, "on"}));
    EXPECT_EQ(state["io"], (Value{{"10", 1}, {"11", 0}, {"12", 1}}));
    EXPECT_EQ(state["leds"],
              (Value{{"UUT2", {{"mode", "BLUE"}, {"blink", false}}}, {"STATUS", {{"mode", "RED"}, {"blink", true}}}}));
    EXPECT_EQ(fixture.call(m::sim::reset), "done");
    expectUntouched();

    InProcessFixture withoutDut({.dutPresent = false});
    withoutDut.call(m::sim::set, {{{"dut", true}}});
    withoutDut.call(m::sim::reset);
    EXPECT_EQ(withoutDut.call(m::dutSensorRead), "dut_sensor_off") << "the start setting holds after a reset";
}

}  // namespace
}  // namespace kelvane::testing
