// The C interface over a scripted controller: how replies become C results, that no exception
// escapes an export, and that a returned text belongs to the calling thread alone.
#include "session_fixture.hpp"

#include <kelvane/Kelvane.hpp>
#include <kelvane/kelvane.h>

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <string>
#include <thread>

namespace kelvane::testing {
namespace {

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

TEST(CApiWrapperTest, NonTextRepliesComeBackPrintedNilAsNullAndUnknownLockStatesSendNothing) {
    SessionFixture fixture;
    fixture.controller->answer("vantrel.dut_sensor_read", 1);
    fixture.controller->answer("vantrel.fixture_up", Value{{"code", 3}});
    Device device(fixture.platform());
    fixture.controller->clearCalls();

    EXPECT_EQ(text(checkDUTSensor(device.handle)), "1");
    EXPECT_EQ(text(trayUp(device.handle)), R"({"code":3})");
    EXPECT_EQ(text(fixtureInit(device.handle)), "(NULL)");
    EXPECT_EQ(text(fixtureLock(device.handle, nullptr)), "Unknown state!");
    EXPECT_EQ(deviceOf(device.handle)->sendCanCommandStringNeedFeedback(1, "get tec temp:1", 3000),
              0);
    for (const auto& method : fixture.controller->methods()) {
        EXPECT_NE(method, "vantrel.magnet_control");
        EXPECT_TRUE(method.rfind("can.", 0) != 0) << method;
    }
}

TEST(CApiWrapperTest, ExceptionInsideAnOperationBecomesTheNullResult) {
    SessionFixture fixture;
    Platform platform = fixture.platform();
    platform.connect = [](const std::string&, std::uint32_t) {
        return std::make_shared<ThrowingClient>();
    };
    Device device(platform);

    ASSERT_EQ(getConnectFlag(device.handle), 1);
    EXPECT_EQ(trayUp(device.handle), nullptr);
    EXPECT_EQ(checkPositionSensor(device.handle), nullptr);
    EXPECT_EQ(setIO(device.handle, 10, 1), nullptr);
    EXPECT_EQ(setFanSpeed(device.handle, 1, 50), 0);
    EXPECT_FALSE(initialFixture(device.handle));
}

TEST(CApiWrapperTest, TextReturnedToOneThreadSurvivesAnotherThreadsCall) {
    SessionFixture first;
    SessionFixture second;
    first.controller->answer("vantrel.dut_sensor_read", "alpha");
    second.controller->answer("vantrel.dut_sensor_read", "beta");
    Device firstDevice(first.platform());
    Device secondDevice(second.platform());

    std::promise<void> firstHasText;
    std::promise<void> secondDone;
    std::string seenByFirst;
    std::thread firstThread([&] {
        const char* kept = checkDUTSensor(firstDevice.handle);
        firstHasText.set_value();
        secondDone.get_future().wait();
        seenByFirst = text(kept);
    });
    std::thread secondThread([&] {
        firstHasText.get_future().wait();
        EXPECT_EQ(text(checkDUTSensor(secondDevice.handle)), "beta");
        secondDone.set_value();
    });
    firstThread.join();
    secondThread.join();
    EXPECT_EQ(seenByFirst, "alpha");
}

}  // namespace
}  // namespace kelvane::testing
