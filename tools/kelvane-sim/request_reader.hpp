// Reads a request message: a request to serve, one to refuse with an error, or one to drop.
#pragma once

#include <kelvane/protocol/json_rpc.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace kelvane::sim {

// A request that carries a readable id but cannot be served.
struct Rejection {
    std::int64_t id = 0;
    RpcError error;
};

// Text that is not a JSON object, or has no integer id, is dropped: there is no id to answer.
struct Dropped {};

std::variant<jsonrpc::Request, Rejection, Dropped> readRequest(std::string_view text);

}  // namespace kelvane::sim
