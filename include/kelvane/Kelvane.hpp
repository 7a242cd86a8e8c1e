// Kelvane: the object behind a C handle of <kelvane/kelvane.h>. It holds one fixture session
// and turns its results into C types, so each exported function is a one-line forward. Its
// operations may be called from any host thread at once, as the session's may.
#pragma once

#include <kelvane/FixtureControl.hpp>
#include <kelvane/Platform.hpp>
#include <kelvane/export.h>
#include <kelvane/kelvane.h>

#include <cstdint>
#include <memory>
#include <string>

namespace kelvane {

class KELVANE_API Kelvane {
public:
    // A wrapper with no session: every operation gives its null result (NULL, 0, false).
    Kelvane() = default;

    // Connects a session to the controller at `ip`, port KELVANE_CONTROLLER_PORT, with no
    // scanner check. The session is null when the controller did not answer; the wrapper is
    // usable either way.
    explicit Kelvane(const std::string& ip, Platform platform = Platform::defaults());
    // The same at another port.
    Kelvane(const std::string& ip, std::uint32_t port, Platform platform);

    // The session, null when creation failed. Shared with the session's own worker threads.
    const std::shared_ptr<FixtureControl>& session() const { return session_; }

    // Ends the device's use, from any thread: see FixtureControl::close().
    void close();

    // Texts below are owned by the library and stay valid until the calling thread's next text
    // result from the library; NULL stands for "no reply" and for "no session".
    int getConnectFlag() const;
    bool initialFixture();
    const char* checkPositionSensor();
    const char* checkDUTSensor();
    const char* trayUp();
    const char* trayDown();
    const char* trayIn();
    const char* trayOut();
    const char* fixtureInit();
    // A null state counts as an unknown state.
    const char* fixtureLock(const char* state);
    const char* setIO(int line, int state);
    int setFanSpeed(int fan, int speed);
    const char* getFanSpeed(int fan);
    // One on-demand reading of the slot's TEC controller: FixtureControl::tecTempRecord2.
    const char* tecTempRecord(int slot);

    // Kept for hosts built against the first interface: sends nothing and returns 0.
    int sendCanCommandStringNeedFeedback(int slot, std::string command, int timeout);

private:
    std::shared_ptr<FixtureControl> session_;
};

// C handles. C++ code may make a device itself (with its own Platform, say) and hand it to C
// code: handleOf gives it a new handle, which destroyKelvaneDev releases like any other.
KELVANE_API KelvaneHandle handleOf(std::shared_ptr<Kelvane> device);
// The device behind a live handle; null for NULL, a destroyed or an unknown handle. The device
// stays alive while the caller holds it, also when another thread destroys the handle.
KELVANE_API std::shared_ptr<Kelvane> deviceOf(KelvaneHandle handle);

}  // namespace kelvane
