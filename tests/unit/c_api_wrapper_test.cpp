// The C interface over a scripted controller: how replies become C results, that no exception
// escapes an export, and that a returned text belongs to the calling thread alone.
#include "session_fixture.hpp"

#include <kelvane/Kelvane.hpp>
#include <kelvane/kelvane.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>

namespace kelvane::testing {
namespace {

using ::testing::Contains;
using ::testing::Not;

std::string text(const char* result) { return result ? result : "(NULL)"; }

// Answers the connection probe, then fails every other call by throwing.
class ThrowingClient final : public RpcClient {
public:
    Value call(const std::string& method, const Value&, const Value&, RpcErrorSlot) override {
        if (method == "server.mode") return "normal";
        throw std::runtime_error("transport broke");
    }
};

// Owns a heap device and hands it out as a C handle.
struct Device {
    explicit Device(Platform platform)
        : handle(handleOf(new Kelvane("10.1.2.3", std::move(platform)))) {}
    ~Device() { destroyKelvaneDev(handle); }
    KelvaneHandle handle;
};

TEST(CApiWrapperTest, DeviceSkipsTheScannerCheckAndPrintsNonTextReplies) {
    SessionFixture fixture;
    fixture.controller->answer("vantrel.dut_sensor_read", 1);
    fixture.controller->answer("vantrel.fixture_up", Value{{"code", 3}});
    Device device(fixture.platform());
    EXPECT_THAT(fixture.log->lines(), Not(Contains("***Barcode Security Check***")));

    EXPECT_EQ(text(checkDUTSensor(device.handle)), "1");
    EXPECT_EQ(text(trayUp(device.handle)), R"({"code":3})");
    EXPECT_EQ(text(fixtureInit(device.handle)), "(NULL)");
    EXPECT_EQ(text(fixtureLock(device.handle, nullptr)), "Unknown state!");
    EXPECT_THAT(fixture.controller->methods(), Not(Contains("vantrel.magnet_control")));
}

TEST(CApiWrapperTest, ExceptionInsideAnOperationBecomesTheNullResult) {
    SessionFixture fixture;
    Platform platform = fixture.platform();
    platform.connect = [](const std::string&, std::uint32_t) { return std::make_shared<ThrowingClient>(); };
    Device device(platform);

    ASSERT_EQ(getConnectFlag(device.handle), 1);
    EXPECT_EQ(trayUp(device.handle), nullptr);
    EXPECT_EQ(checkPositionSensor(device.handle), nullptr);
    EXPECT_EQ(setIO(device.handle, 10, 1), nullptr);
    EXPECT_EQ(setFanSpeed(device.handle, 1, 50), 0);
    EXPECT_FALSE(initialFixture(device.handle));
}

TEST(CApiWrapperTest, TextReturnedToOneThreadSurvivesAnotherThreadsCall) {
    SessionFixture fixture;
    fixture.controller->answer("vantrel.dut_sensor_read", "alpha");
    fixture.controller->answer("vantrel.dut_sensor_read", "beta");
    Device device(fixture.platform());

    const char* kept = checkDUTSensor(device.handle);
    std::thread([&] { EXPECT_EQ(text(checkDUTSensor(device.handle)), "beta"); }).join();
    EXPECT_EQ(text(kept), "alpha");
}

}  // namespace
}  // namespace kelvane::testing
