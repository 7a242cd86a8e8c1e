// The tray's four position sensors and the DUT-presence sensor, read on demand.
#include "motion/motion.hpp"

#include <kelvane/protocol/methods.hpp>
#include "session/fixture_control_private.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <climits>

namespace kelvane {

std::string FixtureControl::checkPositionSensor() { return d_->motion.checkPositionSensor(); }
Value FixtureControl::checkDUTSensor() { return d_->motion.checkDUTSensor(); }

namespace {

// The summary prints each sensor as a 32-bit integer; out-of-range readings saturate.
int sensorReading(const Value& reply) {
    return static_cast<int>(std::clamp<long long>(integerValue(reply), INT_MIN, INT_MAX));
}

std::string stateLine(std::string_view sensorName, int reading) {
    return fmt::format("{}_sensor_state: {}", sensorName, reading == 1 ? "OK" : "NO");
}

}  // namespace

std::string Motion::checkPositionSensor() {
    // A failed read counts as 0.
    int in = sensorReading(controller_.call(methods::inSensorRead));
    log(stateLine("IN", in));
    int out = sensorReading(controller_.call(methods::outSensorRead));
    log(stateLine("OUT", out));
    int up = sensorReading(controller_.call(methods::upSensorRead));
    log(stateLine("UP", up));
    int down = sensorReading(controller_.call(methods::downSensorRead));
    log(stateLine("DOWN", down));

    return fmt::format("{};{};{};{}", in, out, up, down);
}

Value Motion::checkDUTSensor() {
    Value reply = controller_.call(methods::dutSensorRead);
    log(fmt::format("checkDUTSensor state is {}\n", describe(reply)));
    return reply;
}

}  // namespace kelvane
