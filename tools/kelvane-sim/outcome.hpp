// What the simulator answers to one request: a result, or a JSON-RPC error.
#pragma once

#include <kelvane/protocol/json_rpc.hpp>

#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace kelvane::sim {

struct Outcome {
    Value result;
    std::optional<RpcError> error;

    static Outcome reply(Value result) { return {std::move(result), std::nullopt}; }
    static Outcome failure(int code, std::string message) { return {nullptr, RpcError{code, std::move(message)}}; }
};

// The reply message text that carries the outcome under `id`.
inline std::string encodeOutcome(std::int64_t id, const Outcome& outcome) {
    return outcome.error ? jsonrpc::encodeError(id, *outcome.error) : jsonrpc::encodeResult(id, outcome.result);
}

}  // namespace kelvane::sim
