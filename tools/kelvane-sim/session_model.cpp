#include "session_model.hpp"

#include <kelvane/protocol/methods.hpp>

namespace kelvane::sim {
namespace {

constexpr std::string_view serverModeReply = "normal";
constexpr std::string_view initialisedReply = "done";

}  // namespace

bool SessionModel::handles(std::string_view method) const {
    return method == methods::serverMode || method == methods::fixtureInitialise;
}

Outcome SessionModel::call(const jsonrpc::Request& request) {
    if (request.method == methods::serverMode) return Outcome::reply(serverModeReply);
    initialised_ = true;
    return Outcome::reply(initialisedReply);
}

Value SessionModel::state() const { return {{"initialised", initialised_}}; }

void SessionModel::reset() { initialised_ = false; }

}  // namespace kelvane::sim
