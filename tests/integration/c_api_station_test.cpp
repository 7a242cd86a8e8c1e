// A station's host through the C interface: a handle per fixture of a simulated station, within the
// host's descriptor limit. Each fixture has a free port of its own: no other test's controller.
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

std::string text(const char* result) { return result ? result : "(NULL)"; }

class CApiStationTest : public ::testing::Test {
protected:
    // Lowers the limit, then opens `count` handles, handle i to fixture i modulo the station's
    // size: each must connect, with the threads of one handle and a handle's share of descriptors.
    void open(rlim_t descriptorLimit, std::size_t count) {
        rlimit lowered = saved;
        lowered.rlim_cur = std::min(descriptorLimit, saved.rlim_max);
        ::setrlimit(RLIMIT_NOFILE, &lowered);
        handles.push_back(connect(0));
        auto threadsWithOne = threadCount(), descriptorsWithOne = descriptorCount();
        while (handles.size() < count) handles.push_back(connect(handles.size()));
        for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(getConnectFlag(handles[i]), 1) << address(i);
        if (threadsWithOne) {
            EXPECT_EQ(threadCount(), threadsWithOne) << "threads grow with the handles";
            EXPECT_LE(*descriptorCount() - *descriptorsWithOne, (count - 1) * 6) << "descriptors per handle";
        }
    }
    void SetUp() override { ::getrlimit(RLIMIT_NOFILE, &saved); }
    void TearDown() override {
        for (KelvaneHandle handle : handles) destroyKelvaneDev(handle);
        ::setrlimit(RLIMIT_NOFILE, &saved);
    }

    int fixture(std::size_t i) const { return static_cast<int>(i) % station.fixtureCount() + 1; }
    std::string address(std::size_t i) const { return station.address(fixture(i)); }
    KelvaneHandle connect(std::size_t i) {
        KelvaneOptions options = KELVANE_OPTIONS_INIT;
        options.port = static_cast<int>(station.port(fixture(i)));
        options.log = "off";
        return createKelvaneDevWithOptions(address(i).c_str(), &options);
    }

    rlimit saved{};
    SimulatorProcess station{SimulatedStation{32}, {"--travel-ms", "50", "--lift-ms", "50"}};
    std::vector<KelvaneHandle> handles;
};

// macOS's default limit is 256. Had two handles reached one fixture, a tray cycle would be refused.
TEST_F(CApiStationTest, ThirtyTwoFixturesDrivenAtOnceWithinMacOsDescriptorLimit) {
    open(256, 32);
    std::vector<std::string> results(handles.size());
    std::vector<std::thread> hosts;
    for (std::size_t i = 0; i < handles.size(); ++i) {
        hosts.emplace_back([&, i] {
            for (auto move : {trayIn, trayDown, trayUp, trayOut}) results[i] += text(move(handles[i])) + ", ";
            std::string reading = text(tecTempRecord(handles[i], 1));  // 5 commas when incomplete
            results[i] += std::count(reading.begin(), reading.end(), ',') == 7 ? "TEC reading" : reading;
        });
    }
    for (auto& host : hosts) host.join();
    for (std::size_t i = 0; i < results.size(); ++i)
        EXPECT_EQ(results[i], "IN OK, DOWN OK, UP OK, OUT OK, TEC reading") << address(i);
}

// Linux's default limit is 1,024: 150 handles, several to each fixture.
TEST_F(CApiStationTest, HundredFiftyHandlesWithinLinuxDescriptorLimit) { open(1024, 150); }

}  // namespace
}  // namespace kelvane::testing
