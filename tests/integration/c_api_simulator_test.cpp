// The C interface over the real transport when the host destroys the handle while another
// thread is inside a call. (A destroy that ends a move's sensor polls: closing the session,
// TrayMotion's unit test; what a destroyed handle gives: CApiWrapperTest.)
#include "session_fixture.hpp"
#include "simulator_test_support.hpp"

#include <kelvane/kelvane.h>

#include <sstream>

namespace kelvane::testing {
namespace {

std::string text(const char* result) { return result ? result : "(NULL)"; }

using CApiSimulatorTest = SimulatorTest;

// A station aborting a run destroys the handle while another thread waits for a reply held back
// past the call's 20 s: the call ends at once with its usual failure result (not a timeout), touches
// nothing the destroy released (under AddressSanitizer a use after free fails this test). The
// calls are traced, and the trace records their end as the client decided it.
TEST_F(CApiSimulatorTest, DestroyWhileAnotherThreadIsInsideACallEndsThatCallEarly) {
    TemporaryDirectory root;
    const auto trace = root.path() / "destroyed.trace";
    KelvaneOptions options = KELVANE_OPTIONS_INIT;
    options.port = static_cast<int>(sim.port()), options.callTimeoutMs = 20000, options.log = "off";
    options.traceFile = trace.c_str();
    using Operation = const char* (*)(KelvaneHandle);
    auto destroyWhileWaiting = [&](const std::string& method, Operation operation) {
        script({{"method", method}, {"delay_ms", 600000}});
        KelvaneHandle handle = createKelvaneDevWithOptions("127.0.0.1", &options);
        std::string result;
        std::thread caller([&] { result = text(operation(handle)); });
        EXPECT_TRUE(eventually([&] {
            Value journal = sim.control(methods::sim::journal);
            return !journal.empty() && journal.back()["method"] == method;
        })) << method
            << " never reached the simulator";
        std::thread([handle] { destroyKelvaneDev(handle); }).join();
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
