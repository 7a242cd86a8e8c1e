#include "session_fixture.hpp"

#include "c_api/device_options.hpp"

#include <kelvane/Kelvane.hpp>
#include <kelvane/kelvane.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <thread>

namespace kelvane::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

std::string text(const char* result) { return result ? result : "(NULL)"; }

struct Device {
    explicit Device(Platform platform)
        : handle(handleOf(std::make_shared<Kelvane>("127.0.0.1", std::move(platform)))) {}
    ~Device() { destroyKelvaneDev(handle); }
    KelvaneHandle handle;
};

// The C interface's topology: identifier the number 1, one unit, no scan, the standard port.
TEST(CApiWrapperTest, DeviceSkipsTheScannerCheckPrintsNonTextRepliesAndKeepsEachThreadsText) {
    SessionFixture fixture;
    fixture.controller->answer("vantrel.dut_sensor_read", 1);
    fixture.controller->answer("vantrel.fixture_up", Value{{"code", 3}});
    Device device(fixture.platform());
    EXPECT_EQ(deviceOf(device.handle)->session()->toPology(),
              Value::parse(R"({"FixtureIP": {"ip": "127.0.0.1", "port": 7805}, "identifier": 1, "units": 1,
                               "ScanSN": "NO"})"));

    const KelvaneHandle h = device.handle;  // a fan read of no reply is a text, not NULL
    EXPECT_EQ((std::vector{text(checkDUTSensor(h)), text(trayUp(h)), text(fixtureInit(h)),
                           text(fixtureLock(h, nullptr)), text(getFanSpeed(h, 1))}),
              (std::vector<std::string>{"1", "{\n    code = 3;\n}", "(NULL)", "Unknown state!", "(null)"}));
    EXPECT_THAT(fixture.controller->methods(), Not(Contains("vantrel.magnet_control")));

    // The library finds "done" after the zero byte; so does the host, in place of a C string
    // that would end before it.
    fixture.controller->answer("vantrel.fixture_io_set", Value(std::string("ok\0done", 7)));
    EXPECT_EQ(text(setIO(h, 10, 1)), "ok\uFFFDdone");

    fixture.controller->answer("vantrel.set_fan_speed", "fan done");
    fixture.controller->answer("vantrel.set_fan_speed", Value());
    EXPECT_EQ((std::vector{setFanSpeed(h, 1, 50), setFanSpeed(h, 1, 50)}), (std::vector{1, 0}));

    fixture.controller->answer("vantrel.dut_sensor_read", "alpha");
    fixture.controller->answer("vantrel.dut_sensor_read", "beta");
    const char* kept = checkDUTSensor(h);
    std::thread([&] { EXPECT_EQ(text(checkDUTSensor(h)), "beta"); }).join();
    EXPECT_EQ(text(kept), "alpha");
}

// Every export that takes a handle, its result printed.
const std::vector<std::pair<const char*, std::function<std::string(KelvaneHandle)>>> exports = {
    {"getConnectFlag", [](KelvaneHandle h) { return std::to_string(getConnectFlag(h)); }},
    {"initialFixture", [](KelvaneHandle h) { return std::to_string(initialFixture(h)); }},
    {"checkPositionSensor", [](KelvaneHandle h) { return text(checkPositionSensor(h)); }},
    {"checkDUTSensor", [](KelvaneHandle h) { return text(checkDUTSensor(h)); }},
    {"trayUp", [](KelvaneHandle h) { return text(trayUp(h)); }},
    {"trayDown", [](KelvaneHandle h) { return text(trayDown(h)); }},
    {"trayIn", [](KelvaneHandle h) { return text(trayIn(h)); }},
    {"trayOut", [](KelvaneHandle h) { return text(trayOut(h)); }},
    {"fixtureInit", [](KelvaneHandle h) { return text(fixtureInit(h)); }},
    {"fixtureLock", [](KelvaneHandle h) { return text(fixtureLock(h, "on")); }},
    {"setIO", [](KelvaneHandle h) { return text(setIO(h, 10, 1)); }},
    {"setFanSpeed", [](KelvaneHandle h) { return std::to_string(setFanSpeed(h, 1, 50)); }},
    {"getFanSpeed", [](KelvaneHandle h) { return text(getFanSpeed(h, 1)); }},
    {"tecTempRecord", [](KelvaneHandle h) { return text(tecTempRecord(h, 1)); }},
};

// A device whose client throws gives the same results, but for its connect flag.
TEST(CApiWrapperTest, NullDestroyedAndUnknownHandlesAndThrowingOperationsGiveTheResultsOfNoSession) {
    SessionFixture fixture;
    KelvaneHandle noSession = handleOf(std::make_shared<Kelvane>());
    KelvaneHandle destroyed = handleOf(std::make_shared<Kelvane>("127.0.0.1", fixture.platform()));
    destroyKelvaneDev(destroyed);
    KelvaneHandle unknown = reinterpret_cast<KelvaneHandle>(&fixture);
    SessionFixture throwingController;  // answers the connection probe, then throws at every call
    throwingController.controller->onCall([](const RecordedCall& call) {
        if (call.method != "server.mode") throw std::runtime_error("transport broke");
    });
    Device throwing(throwingController.platform());
    ASSERT_EQ(getConnectFlag(throwing.handle), 1);

    for (const auto& [name, call] : exports) {
        std::string expected = call(noSession);
        EXPECT_THAT(expected, ::testing::AnyOf("0", "(NULL)")) << name;
        for (KelvaneHandle handle : {KelvaneHandle(nullptr), destroyed, unknown}) {
            EXPECT_EQ(call(handle), expected) << name << " on " << handle;
        }
        if (name != std::string("getConnectFlag")) {
            EXPECT_EQ(call(throwing.handle), expected) << name << " throwing";
        }
    }
    EXPECT_THAT(fixture.controller->methods(), ElementsAre("server.mode")) << "no RPC after the destroy";
    // Releasing any of them again is harmless.
    for (KelvaneHandle handle : {KelvaneHandle(nullptr), destroyed, unknown, noSession}) {
        destroyKelvaneDev(handle);
    }
    destroyKelvaneDev(noSession);
}

// A host built against an older header passes a shorter struct, one built against a newer header
// a longer one: only the fields both know are read, and only whole ones.
TEST(CApiWrapperTest, OptionsAreReadUpToTheHostsSizeAndSenselessOnesAreRefused) {
    KelvaneOptions options = {0, 7806, 250, "t", 2, "off"};
    auto read = [&](std::size_t size, int port = 7806) {
        options.size = size, options.port = port;
        return readDeviceOptions(&options);
    };
    DeviceOptions all = read(sizeof options + 64).value();
    EXPECT_EQ(std::tie(all.port, all.callTimeout, all.traceFile, all.traceMaxBytes, all.logRoute),
              std::tuple(7806u, std::chrono::milliseconds(250), "t", 2u << 20, "off"));
    DeviceOptions older = read(offsetof(KelvaneOptions, traceFile)).value();
    EXPECT_EQ(std::tie(older.callTimeout, older.traceFile, older.logRoute),
              std::tuple(std::chrono::milliseconds(250), std::nullopt, std::nullopt));
    EXPECT_FALSE(read(offsetof(KelvaneOptions, callTimeoutMs) + 2)->callTimeout) << "a field cut short";
    EXPECT_EQ(readDeviceOptions(nullptr)->port, KELVANE_CONTROLLER_PORT);
    EXPECT_FALSE(read(sizeof options.size - 1) || read(sizeof options, -1) || read(sizeof options, 65536));
}

}  // namespace
}  // namespace kelvane::testing
