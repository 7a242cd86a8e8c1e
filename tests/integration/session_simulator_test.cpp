// A FixtureControl session with the real transport against a kelvane-sim process.
#include "session_fixture.hpp"
#include "simulator_process.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

using kelvane::FixtureControl;
using kelvane::Value;
using kelvane::testing::SimulatorProcess;
using kelvane::testing::TemporaryDirectory;
using ::testing::Contains;

class SessionAgainstSimulator : public ::testing::Test {
protected:
    kelvane::Platform platform() {
        auto platform = kelvane::Platform::defaults();
        platform.log = log;
        platform.fileRoot = root.path();
        return platform;
    }
    Value topology(std::uint32_t port) const {
        return {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", port}}}, {"identifier", "Fixture1"}};
    }
    Value journalMethods() {
        Value methods = Value::array();
        for (const auto& entry : sim.control("sim.journal")) methods.push_back(entry["method"]);
        return methods;
    }

    SimulatorProcess sim;
    TemporaryDirectory root;
    std::shared_ptr<kelvane::CapturingLog> log = std::make_shared<kelvane::CapturingLog>();
};

TEST_F(SessionAgainstSimulator, ConnectsAndInitialisesTheFixture) {
    auto session = FixtureControl::initWithIP(topology(sim.port()), platform());

    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->getConnectFlag(), 1);
    EXPECT_TRUE(session->initialFixture());
    EXPECT_EQ(journalMethods(), Value::array({"server.mode", "vantrel.fixture_init"}));
    // No scanner is attached to a session, so a unit's scan yields nothing and no error.
    EXPECT_TRUE(session->getDutSN("1").is_null());
}

TEST_F(SessionAgainstSimulator, ControllerAnsweringServerModeWithAnErrorGivesNoSession) {
    sim.control("sim.script", Value::array({{{"method", "server.mode"},
                                             {"action", "error"},
                                             {"error", {{"code", 3}, {"message", "busy"}}}}}));
    EXPECT_EQ(FixtureControl::initWithIP(topology(sim.port()), platform()), nullptr);
    EXPECT_THAT(log->lines(), Contains("Error Failed to connect fxiture"));
}

TEST_F(SessionAgainstSimulator, SilentControllerOrNobodyListeningGivesNoSessionSoon) {
    sim.control("sim.script", Value::array({{{"method", "server.mode"}, {"action", "no_reply"}}}));
    EXPECT_EQ(FixtureControl::initWithIP(topology(sim.port()), platform()), nullptr);

    auto port = sim.port();
    sim.kill();
    auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(FixtureControl::initWithIP(topology(port), platform()), nullptr);
    // An operator at an unplugged fixture is told within about a second.
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(3));
}
