// Confirms a tray move by reading its target sensor until it reports active or time runs out.
#include <kelvane/FixtureControl.hpp>

#include "session/fixture_control_private.hpp"

namespace kelvane {
namespace {

constexpr double pollPauseSeconds = 0.5;

}  // namespace

Value FixtureControl::pollSensor(const std::string& sensorMethod, double deadlineSeconds,
                                 std::string_view successLog, std::string_view successResult,
                                 std::string_view timeoutResult) {
    Clock& clock = *d_->platform.clock;
    // Measured on the steady clock, so a time sync during a move neither stretches nor cuts it.
    const double start = clock.monotonic();
    double now = start;
    // The time is taken right after each read but tested only after the pause, so one last
    // read may start up to a pause after the deadline; a sensor that settles right at the
    // deadline is still seen.
    while (now - start < deadlineSeconds) {
        if (d_->closed) break;  // the host ended the session: the move is not confirmed
        Value reading = call(sensorMethod);
        now = clock.monotonic();
        if (isNumberOne(reading)) {
            log(successLog);
            return std::string(successResult);
        }
        clock.sleepFor(pollPauseSeconds);
    }
    return std::string(timeoutResult);
}

}  // namespace kelvane
