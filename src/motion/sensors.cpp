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
    // Shared by the four reads and never looked at: a failed read simply counts as 0.
    std::optional<RpcError> error;

    int in = sensorReading(call(methods::inSensorRead, Value::array(), nullptr, &error));
    log(stateLine("IN", in));
    int out = sensorReading(call(methods::outSensorRead, Value::array(), nullptr, &error));
    log(stateLine("OUT", out));
    int up = sensorReading(call(methods::upSensorRead, Value::array(), nullptr, &error));
    log(stateLine("UP", up));
    int down = sensorReading(call(methods::downSensorRead, Value::array(), nullptr, &error));
    log(stateLine("DOWN", down));

    return fmt::format("{};{};{};{}", in, out, up, down);
}

Value FixtureControl::checkDUTSensor() {
    std::optional<RpcError> error;
    Value reply = call(methods::dutSensorRead, Value::array(), nullptr, &error);
    log(fmt::format("checkDUTSensor state is {}\n", describe(reply)));
    return reply;
}

}  // namespace kelvane
