#include "led_model.hpp"

#include <kelvane/protocol/methods.hpp>

#include <algorithm>
#include <cctype>
#include <string>

namespace kelvane::sim {
namespace {

constexpr std::string_view doneReply = "done";
constexpr std::string_view refusal =
    "led_refused: expected [target, mode] with target \"UUT<n>\" or \"STATUS\" and a mode text";
constexpr std::string_view statusTarget = "STATUS";
constexpr std::string_view slotPrefix = "UUT";

bool isTarget(const Value& target) {
    if (!target.is_string()) return false;
    std::string_view name = target.get_ref<const std::string&>();
    if (name == statusTarget) return true;
    if (!name.starts_with(slotPrefix) || name.size() == slotPrefix.size()) return false;
    auto number = name.substr(slotPrefix.size());
    return std::all_of(number.begin(), number.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

}  // namespace

bool LedModel::handles(std::string_view method) const {
    return method == methods::ledControl || method == methods::ledBlinkControl;
}

Outcome LedModel::call(const jsonrpc::Request& request) {
    const Value& target = argument(request, 0);
    const Value& mode = argument(request, 1);
    if (!isTarget(target) || !mode.is_string()) return Outcome::reply(refusal);
    bool blink = request.method == methods::ledBlinkControl;
    leds_[target.get<std::string>()] = {{"mode", mode}, {"blink", blink}};
    return Outcome::reply(doneReply);
}

Value LedModel::state() const { return {{"leds", leds_}}; }

void LedModel::reset() { leds_ = Value::object(); }

}  // namespace kelvane::sim
