#include "can/bridge.hpp"

namespace kelvane::can {
namespace {

constexpr int canTimeoutMs = 3000;

}  // namespace

Value Bridge::call(std::string_view method, const Value& args, RpcErrorSlot error) const {
    return callThrough(client, std::string(method), args, Value{{"timeout_ms", canTimeoutMs}},
                       error);
}

}  // namespace kelvane::can
