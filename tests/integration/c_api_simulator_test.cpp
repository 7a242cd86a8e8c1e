// The C interface over the real transport when the host destroys the handle while another
// thread is inside a call.
#include "session_fixture.hpp"
#include "simulator_test_support.hpp"

#include <kelvane/Kelvane.hpp>
#include <kelvane/kelvane.h>

#include <sstream>

namespace kelvane::testing {
namespace {

std::string text(const char* result) { return result ? result : "(NULL)"; }

class CApiSimulatorTest : public SimulatorTest {
protected:
    KelvaneHandle connect() {
        Platform platform = fakes.platform();
        platform.clock = clock;
        platform.connect = RPCClientWrapper::factory(RPCClientWrapper::Options{});
        return handleOf(std::make_shared<Kelvane>("127.0.0.1", sim.port(), platform));
    }
    bool received(const std::string& method) {
        return eventually([&] {
            Value journal = sim.control(methods::sim::journal);
            return !journal.empty() && journal.back()["method"] == method;
        });
    }

    SessionFixture fakes;  // log and file root
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
};

// A station aborting a run destroys the handle while another thread is inside a call: the call
// ends early with its usual failure result and touches nothing the destroy released (under
// AddressSanitizer a use after free fails this test).
TEST_F(CApiSimulatorTest, DestroyWhileAnotherThreadIsInsideACallEndsThatCallEarly) {
    auto destroyFromAnotherThread = [](KelvaneHandle handle) {
        std::thread([handle] { destroyKelvaneDev(handle); }).join();
    };

    KelvaneHandle moving = connect();
    sim.control(methods::sim::set,
                Value::array({{{"tray", {{"horizontal", "IN"}, {"vertical", "DOWN"}}}, {"stall", "up"}}}));
    clock->atNextSleep([&] { destroyFromAnotherThread(moving); });
    EXPECT_EQ(text(trayUp(moving)), "Fixture up action is executed,but up sensor is not OK\uFF01");
    EXPECT_EQ(clock->sleeps().size(), 1u) << "the poll loop stops at its next step";
    EXPECT_EQ(text(trayUp(moving)), "(NULL)") << "a destroyed handle has no session";

    // Replies held back far longer than any call waits: the destroy comes while the call is in.
    // The calls are traced, and the trace records their end as the client decided it.
    const auto trace = fakes.root.path() / "destroyed.trace";
    KelvaneOptions options = KELVANE_OPTIONS_INIT;
    options.port = static_cast<int>(sim.port()), options.callTimeoutMs = 600000;
    options.traceFile = trace.c_str(), options.log = "off";
    using Operation = const char* (*)(KelvaneHandle);
    auto destroyWhileWaiting = [&](const std::string& method, Operation operation) {
        sim.control(methods::sim::script, Value::array({{{"method", method}, {"delay_ms", 600000}}}));
        KelvaneHandle handle = createKelvaneDevWithOptions("127.0.0.1", &options);
        std::string result;
        std::thread caller([&] { result = text(operation(handle)); });
        EXPECT_TRUE(received(method)) << method << " never reached the simulator";
        destroyFromAnotherThread(handle);
        caller.join();
        return result;
    };
    EXPECT_EQ(destroyWhileWaiting("vantrel.dut_sensor_read", checkDUTSensor), "(NULL)");
    EXPECT_EQ(destroyWhileWaiting("vantrel.fixture_io_set", [](KelvaneHandle handle) { return setIO(handle, 10, 1); }),
              "RPC client closed (code -32102)");
    std::istringstream lines(fileText(trace));
    std::vector<std::string> outcomes;
    for (std::string line; std::getline(lines, line);) outcomes.push_back(Value::parse(line)["outcome"]);
    EXPECT_EQ(outcomes, (std::vector<std::string>{"result", "closed", "result", "closed"}));
}

}  // namespace
}  // namespace kelvane::testing
