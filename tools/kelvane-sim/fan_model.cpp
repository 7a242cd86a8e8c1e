#include "fan_model.hpp"

#include <kelvane/protocol/methods.hpp>

namespace kelvane::sim {
namespace {

constexpr std::string_view doneReply = "done";
constexpr std::string_view setRefusal = "set_fan_speed_refused: fan and speed must be integers";
constexpr std::string_view getRefusal = "get_fan_speed_refused: fan must be an integer";

}  // namespace

bool FanModel::handles(std::string_view method) const {
    return method == methods::setFanSpeed || method == methods::getFanSpeed;
}

Outcome FanModel::call(const jsonrpc::Request& request) {
    if (request.method == methods::setFanSpeed) {
        return setSpeed(argument(request, 0), argument(request, 1));
    }
    return speedOf(argument(request, 0));
}

Outcome FanModel::setSpeed(const Value& fan, const Value& speed) {
    if (!fan.is_number_integer() || !speed.is_number_integer()) return Outcome::reply(setRefusal);
    speeds_[describe(fan)] = speed;
    return Outcome::reply(doneReply);
}

Outcome FanModel::speedOf(const Value& fan) const {
    if (!fan.is_number_integer()) return Outcome::reply(getRefusal);
    auto found = speeds_.find(describe(fan));
    return Outcome::reply(found == speeds_.end() ? Value(0) : *found);
}

Value FanModel::state() const { return {{"fans", speeds_}}; }

void FanModel::reset() { speeds_ = Value::object(); }

}  // namespace kelvane::sim
