// The simulated mechanics: the tray moves only as a real fixture allows, and the sensors follow.
#include "simulator_test_support.hpp"

#include "rpc/methods.hpp"

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;

const Value outAndUp = {{"down", 0}, {"in", 0}, {"out", 1}, {"up", 1}};
const Value inAndUp = {{"down", 0}, {"in", 1}, {"out", 0}, {"up", 1}};
const Value inAndDown = {{"down", 1}, {"in", 1}, {"out", 0}, {"up", 0}};

class SimulatorTrayTest : public SimulatorTest {
protected:
    SimulatorTrayTest() : SimulatorTest({"--travel-ms", "150", "--lift-ms", "100"}) {}

    bool sensorsBecome(const Value& expected) {
        return eventually([&] { return sensors() == expected; });
    }
};

TEST_F(SimulatorTrayTest, FullCycleAcknowledgesEachMoveAndSensorsFollowTheTray) {
    EXPECT_EQ(sensors(), outAndUp);
    EXPECT_EQ(call(std::string(m::outSensorRead)), 1);
    EXPECT_EQ(call(std::string(m::inSensorRead)), 0);

    EXPECT_EQ(call(std::string(m::fixtureIn)), "in_done");
    EXPECT_EQ(call(std::string(m::outSensorRead)), 0) << "OUT must drop as soon as the tray leaves";
    ASSERT_TRUE(sensorsBecome(inAndUp));
    EXPECT_TRUE(isNumberOne(call(std::string(m::inSensorRead)))) << "sensors answer the number 1";

    EXPECT_EQ(call(std::string(m::fixtureDown)), "down_done");
    ASSERT_TRUE(sensorsBecome(inAndDown));
    EXPECT_EQ(call(std::string(m::fixtureUp)), "up_done");
    ASSERT_TRUE(sensorsBecome(inAndUp));
    EXPECT_EQ(call(std::string(m::fixtureOut)), "out_done");
    ASSERT_TRUE(sensorsBecome(outAndUp));
    EXPECT_EQ(sim.control("sim.state")["tray"]["moving"], nullptr);
}

TEST_F(SimulatorTrayTest, MovesTheMechanicsForbidAreRefusedWithoutMoving) {
    EXPECT_EQ(call(std::string(m::fixtureDown)), "down_refused: tray is not in");
    EXPECT_EQ(sensors(), outAndUp);

    sim.control("sim.set", {{{"tray", {{"horizontal", "IN"}, {"vertical", "DOWN"}}}}});
    EXPECT_EQ(call(std::string(m::fixtureOut)), "out_refused: tray is not up");
    EXPECT_EQ(call(std::string(m::fixtureIn)), "in_refused: tray is not up");
    EXPECT_EQ(sensors(), inAndDown);
    EXPECT_EQ(call(std::string(m::fixtureUp)), "up_done") << "rising is always allowed";
}

TEST_F(SimulatorTrayTest, WhileTravellingNoPositionSensorIsActiveAndLoweringIsRefused) {
    sim.control("sim.set", {{{"travel_ms", 60000}}});
    EXPECT_EQ(call(std::string(m::fixtureIn)), "in_done");
    EXPECT_EQ(sensors(), (Value{{"down", 0}, {"in", 0}, {"out", 0}, {"up", 1}}));
    EXPECT_EQ(call(std::string(m::fixtureDown)), "down_refused: tray is not in");
    EXPECT_EQ(sim.control("sim.state")["tray"]["moving"]["to"], "IN");
}

TEST_F(SimulatorTrayTest, StuckSensorReadsItsValueAndStalledMoveNeverCompletesUntilCleared) {
    sim.control("sim.set", {{{"stuck", {{"up", 0}, {"in", "1"}}}}});
    EXPECT_EQ(call(std::string(m::upSensorRead)), 0);
    EXPECT_EQ(call(std::string(m::inSensorRead)), "1");
    EXPECT_EQ(call(std::string(m::fixtureIn)), "in_done") << "a stuck sensor does not block the mechanics";
    sim.control("sim.set", {{{"stuck", nullptr}}});
    ASSERT_TRUE(sensorsBecome(inAndUp));

    sim.control("sim.set", {{{"stall", "out"}, {"travel_ms", 0}}});
    EXPECT_EQ(call(std::string(m::fixtureOut)), "out_done");
    EXPECT_EQ(call(std::string(m::outSensorRead)), 0) << "even an instant move stays under way";
    EXPECT_TRUE(sim.control("sim.state")["tray"]["moving"]["stalled"].get<bool>());
    sim.control("sim.set", {{{"stall", nullptr}}});
    ASSERT_TRUE(sensorsBecome(outAndUp));
}

TEST_F(SimulatorTrayTest, SetRejectsUnknownKeysAndBadValues) {
    std::optional<RpcError> error;
    sim.control("sim.set", {{{"stall", "sideways"}}}, &error);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, jsonrpc::invalidParamsError);
    sim.control("sim.set", {{{"gravity", 1}}}, &error);
    ASSERT_TRUE(error);
    EXPECT_NE(error->message.find("unknown setting \"gravity\""), std::string::npos);
    sim.control("sim.set", {{{"travel_ms", -1}}}, &error);
    EXPECT_TRUE(error);
}

}  // namespace
}  // namespace kelvane::testing
