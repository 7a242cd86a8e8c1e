#include "lock_model.hpp"

#include <kelvane/protocol/methods.hpp>

namespace kelvane::sim {
namespace {

constexpr std::string_view doneReply = "done";
constexpr std::string_view refusal = "magnet_refused: state must be \"on\" or \"off\"";

}  // namespace

bool LockModel::handles(std::string_view method) const { return method == methods::magnetControl; }

Outcome LockModel::call(const jsonrpc::Request& request) {
    const Value& wanted = argument(request, 0);
    if (!isText(wanted, "on") && !isText(wanted, "off")) return Outcome::reply(refusal);
    state_ = wanted.get<std::string>();
    return Outcome::reply(doneReply);
}

Value LockModel::state() const { return {{"lock", state_}}; }

void LockModel::reset() { state_ = "off"; }

}  // namespace kelvane::sim
