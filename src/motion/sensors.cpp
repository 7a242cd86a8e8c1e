// The tray's four position sensors and the DUT-presence sensor, read on demand.
#include <kelvane/FixtureControl.hpp>

#include <kelvane/protocol/methods.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <climits>

namespace kelvane {
namespace {

// The summary prints each sensor as a 32-bit integer; out-of-range readings saturate.
int sensorReading(const Value& reply) {
    return static_cast<int>(std::clamp<long long>(integerValue(reply), INT_MIN, INT_MAX));
}

std::string stateLine(std::string_view sensorName, int reading) {
    return fmt::format("{}_sensor_state: {}", sensorName, reading == 1 ? "OK" : "NO");
}

}  // namespace

std::string FixtureControl::checkPositionSensor() {
    // A failed read counts as 0.
    int in = sensorReading(call(methods::inSensorRead));
    log(stateLine("IN", in));
    int out = sensorReading(call(methods::outSensorRead));
    log(stateLine("OUT", out));
    int up = sensorReading(call(methods::upSensorRead));
    log(stateLine("UP", up));
    int down = sensorReading(call(methods::downSensorRead));
    log(stateLine("DOWN", down));

    return fmt::format("{};{};{};{}", in, out, up, down);
}

Value FixtureControl::checkDUTSensor() {
    Value reply = call(methods::dutSensorRead);
    log(fmt::format("checkDUTSensor state is {}\n", describe(reply)));
    return reply;
}

}  // namespace kelvane
