// The exported device functions: each forwards to the handle's Kelvane object.
#include <kelvane/Kelvane.hpp>
#include <kelvane/kelvane.h>

#include "c_api/guarded.hpp"

#include <new>

using kelvane::guarded;
using kelvane::Kelvane;

namespace {

Kelvane& device(KelvaneHandle handle) { return *kelvane::deviceOf(handle); }

}  // namespace

extern "C" {

KelvaneHandle createKelvaneDev(const char* ip) {
    Kelvane* created =
        guarded<Kelvane*>(nullptr, [&] { return ip ? new Kelvane(ip) : new Kelvane(); });
    // Should creation itself fail, the host still gets a handle, one with no session.
    if (!created) created = new (std::nothrow) Kelvane();
    return kelvane::handleOf(created);
}

void destroyKelvaneDev(KelvaneHandle handle) {
    guarded(0, [&] {
        delete kelvane::deviceOf(handle);
        return 0;
    });
}

int getConnectFlag(KelvaneHandle handle) {
    return guarded(0, [&] { return device(handle).getConnectFlag(); });
}

bool initialFixture(KelvaneHandle handle) {
    return guarded(false, [&] { return device(handle).initialFixture(); });
}

const char* checkPositionSensor(KelvaneHandle handle) {
    return guarded<const char*>(nullptr, [&] { return device(handle).checkPositionSensor(); });
}

const char* checkDUTSensor(KelvaneHandle handle) {
    return guarded<const char*>(nullptr, [&] { return device(handle).checkDUTSensor(); });
}

const char* trayUp(KelvaneHandle handle) {
    return guarded<const char*>(nullptr, [&] { return device(handle).trayUp(); });
}

const char* trayDown(KelvaneHandle handle) {
    return guarded<const char*>(nullptr, [&] { return device(handle).trayDown(); });
}

const char* trayIn(KelvaneHandle handle) {
    return guarded<const char*>(nullptr, [&] { return device(handle).trayIn(); });
}

const char* trayOut(KelvaneHandle handle) {
    return guarded<const char*>(nullptr, [&] { return device(handle).trayOut(); });
}

const char* fixtureInit(KelvaneHandle handle) {
    return guarded<const char*>(nullptr, [&] { return device(handle).fixtureInit(); });
}

const char* fixtureLock(KelvaneHandle handle, const char* state) {
    return guarded<const char*>(nullptr, [&] { return device(handle).fixtureLock(state); });
}

const char* setIO(KelvaneHandle handle, int line, int state) {
    return guarded<const char*>(nullptr, [&] { return device(handle).setIO(line, state); });
}

int setFanSpeed(KelvaneHandle handle, int fan, int speed) {
    return guarded(0, [&] { return device(handle).setFanSpeed(fan, speed); });
}

const char* getFanSpeed(KelvaneHandle handle, int fan) {
    return guarded<const char*>(nullptr, [&] { return device(handle).getFanSpeed(fan); });
}

}  // extern "C"
