#include "dut_model.hpp"

#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/replies.hpp>

namespace kelvane::sim {
namespace {

constexpr std::string_view presenceKey = "dut";

}  // namespace

bool DutModel::handles(std::string_view method) const { return method == methods::dutSensorRead; }

Outcome DutModel::call(const jsonrpc::Request&) {
    return Outcome::reply(present_ ? replies::dutPresent : replies::dutAbsent);
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
