// A station's host process through the C interface: one handle per fixture of a simulated
// station, all driven at once, within the descriptor limit the host is given. Each test sets its
// process's limit before it opens anything, so a handle that costs too much fails here as it
// would in the station. Each fixture listens on a free port of its own, so these tests never
// meet another test's controller.
#include "process_resources.hpp"
#include "simulator_process.hpp"

#include <kelvane/kelvane.h>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

namespace kelvane::testing {
namespace {

constexpr std::size_t descriptorsPerHandle = 6;

// Lowers this process's limit of open descriptors for the test's length.
class DescriptorLimit {
public:
    explicit DescriptorLimit(rlim_t limit) {
        ::getrlimit(RLIMIT_NOFILE, &previous_);
        rlimit lowered = previous_;
        lowered.rlim_cur = std::min(limit, previous_.rlim_max);
        ::setrlimit(RLIMIT_NOFILE, &lowered);
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &previous_); }

private:
    rlimit previous_{};
};

std::string text(const char* result) { return result ? result : "(NULL)"; }

class CApiStationTest : public ::testing::Test {
protected:
    // Opens `count` handles, handle i to fixture i modulo the station's size; checks that each
    // connected and that neither threads nor descriptors grow beyond a handle's share.
    void open(std::size_t count) {
        handles.push_back(connect(0));
        auto threadsWithOne = threadCount(), descriptorsWithOne = descriptorCount();
        while (handles.size() < count) handles.push_back(connect(handles.size()));
        for (std::size_t i = 0; i < count; ++i)
            EXPECT_EQ(getConnectFlag(handles[i]), 1) << "handle " << i << " to " << address(i);
        if (threadsWithOne) {
            EXPECT_EQ(threadCount(), threadsWithOne) << "threads grow with the handles";
        }
        if (descriptorsWithOne) {
            EXPECT_LE(*descriptorCount() - *descriptorsWithOne, (count - 1) * descriptorsPerHandle);
        }
    }
    void TearDown() override {
        for (KelvaneHandle handle : handles) destroyKelvaneDev(handle);
    }

    std::string address(std::size_t i) const { return station.address(fixture(i)); }
    int fixture(std::size_t i) const { return static_cast<int>(i) % station.fixtureCount() + 1; }
    KelvaneHandle connect(std::size_t i) {
        KelvaneOptions options = KELVANE_OPTIONS_INIT;
        options.port = static_cast<int>(station.port(fixture(i)));
        options.log = "off";
        return createKelvaneDevWithOptions(address(i).c_str(), &options);
    }

    SimulatorProcess station{SimulatedStation{32}, {"--travel-ms", "50", "--lift-ms", "50"}};
    std::vector<KelvaneHandle> handles;
};

// macOS gives a process 256 descriptors: a station of 32 fixtures, each on a thread of the host,
// runs a tray cycle and reads a TEC controller on all of them at once. Had two handles reached
// one fixture, its second tray cycle would be refused.
TEST_F(CApiStationTest, ThirtyTwoFixturesDrivenAtOnceWithinMacOsDescriptorLimit) {
    DescriptorLimit limit(256);
    open(32);
    std::vector<std::string> results(handles.size());
    std::vector<std::thread> hosts;
    for (std::size_t i = 0; i < handles.size(); ++i) {
        hosts.emplace_back([&, i] {
            KelvaneHandle handle = handles[i];
            std::string cycle;
            for (auto move : {trayIn, trayDown, trayUp, trayOut}) cycle += text(move(handle)) + ", ";
            std::string reading = text(tecTempRecord(handle, 1));
            bool complete = std::count(reading.begin(), reading.end(), ',') == 7 &&
                            reading.find("get null value") == std::string::npos;
            results[i] = cycle + (complete ? "TEC reading" : reading);
        });
    }
    for (auto& host : hosts) host.join();
    for (std::size_t i = 0; i < results.size(); ++i)
        EXPECT_EQ(results[i], "IN OK, DOWN OK, UP OK, OUT OK, TEC reading") << address(i);
}

// Linux gives a process 1,024 descriptors: 150 handles, several to each fixture.
TEST_F(CApiStationTest, HundredFiftyHandlesWithinLinuxDescriptorLimit) {
    DescriptorLimit limit(1024);
    open(150);
    for (std::size_t i = 0; i < handles.size(); ++i)
        EXPECT_EQ(text(checkDUTSensor(handles[i])), "dut_sensor_on") << "handle " << i;
}

}  // namespace
}  // namespace kelvane::testing
