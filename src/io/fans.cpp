// Fan speed: set and read back, as the controller reports it.
#include <kelvane/FixtureControl.hpp>

#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/replies.hpp>

#include <fmt/format.h>

namespace kelvane {

bool FixtureControl::setFanSpeed(std::int32_t fan, std::int32_t speed) {
    Value reply = call(methods::setFanSpeed, Value::array({fan, speed}));
    return describedContains(reply, replies::done);
}

std::string FixtureControl::getFanSpeed(std::int32_t fan) {
    // The line says "det" although this only reads; kept as existing station logs have it.
    log(fmt::format("detFan{} to Speed", fan));
    Value reply = call(methods::getFanSpeed, Value::array({fan}));
    return describe(reply);
}

}  // namespace kelvane
