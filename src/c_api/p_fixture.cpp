// The exported device functions: each looks its handle up and forwards to the device. The
// device is held for the whole call, so a destroy from another thread cannot free it under the
// call; the last holder releases it.
#include <kelvane/Kelvane.hpp>
#include <kelvane/kelvane.h>

#include "c_api/device_options.hpp"
#include "c_api/guarded.hpp"
#include "c_api/handle_table.hpp"

#include <memory>

using kelvane::guarded;
using kelvane::Kelvane;

namespace {

// The operation on the handle's device, or `noSession` for NULL, unknown and destroyed handles.
template <typename Result, typename Operation>
Result onDevice(KelvaneHandle handle, Result noSession, Operation&& operation) noexcept {
    return guarded(noSession, [&] {
        std::shared_ptr<Kelvane> device = kelvane::deviceOf(handle);
        return device ? operation(*device) : noSession;
    });
}

const char* const noText = nullptr;

}  // namespace

extern "C" {

KelvaneHandle createKelvaneDev(const char* ip) { return createKelvaneDevWithOptions(ip, nullptr); }

KelvaneHandle createKelvaneDevWithOptions(const char* ip, const KelvaneOptions* options) {
    auto created = guarded<std::shared_ptr<Kelvane>>(nullptr, [&] {
        auto read = kelvane::readDeviceOptions(options);
        if (!ip || !read) return std::make_shared<Kelvane>();
        return std::make_shared<Kelvane>(ip, read->port, kelvane::platformFor(*read));
    });
    // Should creation itself fail, the host still gets a handle, one with no session.
    return guarded<KelvaneHandle>(
        nullptr, [&] { return kelvane::handleOf(created ? std::move(created) : std::make_shared<Kelvane>()); });
}

void destroyKelvaneDev(KelvaneHandle handle) {
    guarded(0, [&] {
        if (auto device = kelvane::HandleTable::instance().remove(handle)) device->close();
        return 0;
    });
}

int getConnectFlag(KelvaneHandle handle) {
    return onDevice(handle, 0, [](Kelvane& device) { return device.getConnectFlag(); });
}

bool initialFixture(KelvaneHandle handle) {
    return onDevice(handle, false, [](Kelvane& device) { return device.initialFixture(); });
}

const char* checkPositionSensor(KelvaneHandle handle) {
    return onDevice(handle, noText, [](Kelvane& device) { return device.checkPositionSensor(); });
}

const char* checkDUTSensor(KelvaneHandle handle) {
    return onDevice(handle, noText, [](Kelvane& device) { return device.checkDUTSensor(); });
}

const char* trayUp(KelvaneHandle handle) {
    return onDevice(handle, noText, [](Kelvane& device) { return device.trayUp(); });
}

const char* trayDown(KelvaneHandle handle) {
    return onDevice(handle, noText, [](Kelvane& device) { return device.trayDown(); });
}

const char* trayIn(KelvaneHandle handle) {
    return onDevice(handle, noText, [](Kelvane& device) { return device.trayIn(); });
}

const char* trayOut(KelvaneHandle handle) {
    return onDevice(handle, noText, [](Kelvane& device) { return device.trayOut(); });
}

const char* fixtureInit(KelvaneHandle handle) {
    return onDevice(handle, noText, [](Kelvane& device) { return device.fixtureInit(); });
}

const char* fixtureLock(KelvaneHandle handle, const char* state) {
    return onDevice(handle, noText, [&](Kelvane& device) { return device.fixtureLock(state); });
}

const char* setIO(KelvaneHandle handle, int line, int state) {
    return onDevice(handle, noText, [&](Kelvane& device) { return device.setIO(line, state); });
}

int setFanSpeed(KelvaneHandle handle, int fan, int speed) {
    return onDevice(handle, 0, [&](Kelvane& device) { return device.setFanSpeed(fan, speed); });
}

const char* getFanSpeed(KelvaneHandle handle, int fan) {
    return onDevice(handle, noText, [&](Kelvane& device) { return device.getFanSpeed(fan); });
}

const char* tecTempRecord(KelvaneHandle handle, int slot) {
    return onDevice(handle, noText, [&](Kelvane& device) { return device.tecTempRecord(slot); });
}

}  // extern "C"
