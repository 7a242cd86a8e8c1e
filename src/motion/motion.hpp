// Fixture motion and sensing: the tray's position sensors and the DUT sensor, tray moves checked
// beforehand and confirmed on their target sensor, the magnet lock, the fixture's initial IO
// state. Each operation is a call or a few to the controller board through the session's
// ControllerClient (rpc/controller_client.hpp); a move polls in the platform's time.
#pragma once

#include <kelvane/Platform.hpp>
#include <kelvane/Value.hpp>

#include "rpc/controller_client.hpp"

#include <string>
#include <string_view>

namespace kelvane {

// Called on host threads; it takes no lock, and the host serialises fixture motion. Every
// operation blocks its thread for its calls (a move also for its polling, up to 15 s) and never
// throws.
class Motion {
public:
    Motion(const ControllerClient& controller, Clock& clock, LogSink& log)
        : controller_(controller), clock_(clock), log_(log) {}

    // sensors.cpp
    std::string checkPositionSensor();
    Value checkDUTSensor();
    // tray.cpp
    Value trayUp();
    Value trayDown();
    Value trayIn();
    Value trayOut();
    // lock_and_init.cpp
    Value fixtureLock(const std::string& state);
    Value fixtureInit();

private:
    Value pollSensor(std::string_view sensorMethod, double deadlineSeconds, std::string_view successLog,
                     std::string_view successResult, std::string_view timeoutResult);
    void log(std::string_view line) { log_.write(line); }

    const ControllerClient& controller_;
    Clock& clock_;
    LogSink& log_;
};

}  // namespace kelvane
