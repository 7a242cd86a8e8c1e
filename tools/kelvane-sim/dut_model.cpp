#include "dut_model.hpp"

#include "rpc/methods.hpp"

namespace kelvane::sim {
namespace {

constexpr std::string_view presentReply = "dut_sensor_on";
constexpr std::string_view absentReply = "dut_sensor_off";
constexpr std::string_view presenceKey = "dut";

}  // namespace

bool DutModel::handles(std::string_view method) const { return method == methods::dutSensorRead; }

Outcome DutModel::call(const jsonrpc::Request&) {
    return Outcome::reply(present_ ? presentReply : absentReply);
}

Value DutModel::state() const { return {{presenceKey, present_}}; }

SetResult DutModel::set(std::string_view key, const Value& value) {
    if (key != presenceKey) return SetResult::notMine;
    if (!value.is_boolean()) return SetResult::badValue;
    present_ = value.get<bool>();
    return SetResult::applied;
}

void DutModel::reset() { present_ = presentAtStart_; }

}  // namespace kelvane::sim
