// A station's host through the C interface: a handle per fixture of a simulated station, within
// macOS's default descriptor limit of 256. Each fixture has a free port of its own: no other
// test's controller. Had two handles reached one fixture, a tray cycle would be refused.
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
    void SetUp() override { ::getrlimit(RLIMIT_NOFILE, &saved); }
    void TearDown() override {
        for (KelvaneHandle handle : handles) destroyKelvaneDev(handle);
        ::setrlimit(RLIMIT_NOFILE, &saved);
    }
    KelvaneHandle connect(int fixture) {
        KelvaneOptions options = KELVANE_OPTIONS_INIT;
        options.port = static_cast<int>(station.port(fixture)), options.log = "off";
        return createKelvaneDevWithOptions(station.address(fixture).c_str(), &options);
    }

    rlimit saved{};
    SimulatorProcess station{SimulatedStation{32}, {"--travel-ms", "50", "--lift-ms", "50"}};
    std::vector<KelvaneHandle> handles;
};

// Each handle connects, with the threads of one handle and a handle's share of descriptors.
TEST_F(CApiStationTest, ThirtyTwoFixturesDrivenAtOnceWithinMacOsDescriptorLimit) {
    rlimit lowered = saved;
    lowered.rlim_cur = std::min<rlim_t>(256, saved.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &lowered);
    handles.push_back(connect(1));
    auto threadsWithOne = threadCount(), descriptorsWithOne = descriptorCount();
    for (int fixture = 2; fixture <= 32; ++fixture) handles.push_back(connect(fixture));
    if (threadsWithOne) {
        EXPECT_EQ(threadCount(), threadsWithOne) << "threads grow with the handles";
        EXPECT_LE(*descriptorCount() - *descriptorsWithOne, 31u * 6) << "descriptors per handle";
    }
    std::vector<std::string> results(handles.size());
    std::vector<std::thread> hosts;
    for (std::size_t i = 0; i < handles.size(); ++i) {
        hosts.emplace_back([&, i] {
            results[i] = std::to_string(getConnectFlag(handles[i])) + ": ";
            for (auto move : {trayIn, trayDown, trayUp, trayOut}) results[i] += text(move(handles[i])) + ", ";
            std::string reading = text(tecTempRecord(handles[i], 1));  // 5 commas when incomplete
            results[i] += std::count(reading.begin(), reading.end(), ',') == 7 ? "TEC reading" : reading;
        });
    }
    for (auto& host : hosts) host.join();
    for (std::size_t i = 0; i < results.size(); ++i)
        EXPECT_EQ(results[i], "1: IN OK, DOWN OK, UP OK, OUT OK, TEC reading") << station.address(int(i) + 1);
}

}  // namespace
}  // namespace kelvane::testing
