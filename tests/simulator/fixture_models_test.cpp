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
const Value rising = {{"down", 0}, {"in", 1}, {"out", 0}, {"up", 0}};
const Value travelling = {{"down", 0}, {"in", 0}, {"out", 0}, {"up", 1}};

class SimulatedTrayTest : public ::testing::Test {
protected:
    Value sensors() { return fixture.call(m::sim::state)["sensors"]; }
    void set(const Value& changes) { fixture.call(m::sim::set, Value::array({changes})); }
    // The sensors, or the answer to `method`, once the clock has moved on by `by`.
    Value after(std::chrono::milliseconds by, std::string_view method = {}) {
        fixture.advance(by);
        return method.empty() ? sensors() : fixture.call(method);
    }

    InProcessFixture fixture{{.travel = 150ms, .lift = 100ms}};
};

// Rising is always allowed; nothing is active while travelling; a move repeated goes on, a move
// reversed starts over.
TEST_F(SimulatedTrayTest, ForbiddenMovesAreRefusedNothingIsActiveWhileTravellingStuckAndStalledHoldTillCleared) {
    EXPECT_EQ(fixture.call(m::fixtureDown), "down_refused: tray is not in");
    set({{"tray", {{"horizontal", "IN"}, {"vertical", "DOWN"}}}});
    EXPECT_EQ(Value::array({fixture.call(m::fixtureOut), fixture.call(m::fixtureIn), sensors(),
                            fixture.call(m::fixtureUp), fixture.call(m::fixtureIn), after(99ms), after(1ms)}),
              Value::array({"out_refused: tray is not up", "in_refused: tray is not up", inAndDown, "up_done",
                            "in_refused: tray is not up", rising, inAndUp}));
    EXPECT_EQ(
        Value::array({fixture.call(m::fixtureOut), after(100ms, m::fixtureOut), fixture.call(m::fixtureDown),
                      after(50ms), fixture.call(m::fixtureIn), after(100ms, m::fixtureOut), after(149ms), after(1ms)}),
        Value::array({"out_done", "out_done", "down_refused: tray is not in", outAndUp, "in_done", "out_done",
                      travelling, outAndUp}));

    // A stuck sensor reads its value (without blocking the mechanics), a stalled move never
    // completes, even an instant one, until each is cleared.
    set({{"stuck", {{"up", 0}, {"in", "1"}}}});
    EXPECT_EQ(Value::array({fixture.call(m::upSensorRead), fixture.call(m::inSensorRead), fixture.call(m::fixtureIn)}),
              Value::array({0, "1", "in_done"}));
    fixture.advance(150ms);
    set({{"stuck", nullptr}});
    EXPECT_EQ(sensors(), inAndUp);
    set({{"stall", "out"}, {"travel_ms", 0}});
    EXPECT_EQ(Value::array({fixture.call(m::fixtureOut), after(24h, m::outSensorRead),
                            fixture.call(m::sim::state)["tray"]["moving"]["stalled"]}),
              Value::array({"out_done", 0, true}));
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
    for (Value bad : {Value{{"stall", "sideways"}}, Value{{"gravity", 1}}, Value{{"travel_ms", -1}}})
        EXPECT_EQ(fixture.failure(m::sim::set, Value::array({bad})), jsonrpc::invalidParamsError) << bad.dump();
    expectUntouched();

    // A fan never set reads 0; IO lines may come one level deeper.
    EXPECT_EQ(Value::array({fixture.call(m::serverMode), fixture.call(m::fixtureInitialise),
                            fixture.call(m::magnetControl, {"on"}), fixture.call(m::setFanSpeed, {1, 60}),
                            fixture.call(m::getFanSpeed, {1}), fixture.call(m::getFanSpeed, {2}),
                            fixture.call(m::fixtureIoSet, {{{10, 1}, {11, 0}}}, {{"timeout_ms", 20000}}),
                            fixture.call(m::fixtureIoSet, {{{{12, 1}}}}), fixture.call(m::ledControl, {"UUT2", "BLUE"}),
                            fixture.call(m::ledBlinkControl, {"STATUS", "RED"}), fixture.call(m::dutSensorRead),
                            fixture.call(m::sim::set, {{{"dut", false}}}), fixture.call(m::dutSensorRead)}),
              Value::array({"normal", "done", "done", "done", 60, 0, "done", "done", "done", "done", "dut_sensor_on",
                            "done", "dut_sensor_off"}));

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
