// The simulated mechanics: the tray moves only as a real fixture allows, and the sensors follow.
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

// A whole cycle of acknowledged moves with the sensors following is the main job's
// (tests/c/fixture_cycle.sh) and the fault campaign's healthy cycle.
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

TEST_F(SimulatorTrayTest, SetRejectsUnknownKeysAndBadValues) {
    for (Value bad : {Value{{"stall", "sideways"}}, Value{{"gravity", 1}}, Value{{"travel_ms", -1}}}) {
        std::optional<RpcError> error;
        sim.control("sim.set", Value::array({bad}), &error);
        ASSERT_TRUE(error) << bad.dump();
        EXPECT_EQ(error->code, jsonrpc::invalidParamsError) << bad.dump();
    }
}

}  // namespace
}  // namespace kelvane::testing
