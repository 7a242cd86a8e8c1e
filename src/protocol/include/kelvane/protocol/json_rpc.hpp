// The JSON-RPC 2.0 messages that travel between a client and a controller, as text.
// Knows nothing of sockets, so any transport (or a test) can use it.
#pragma once

#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>
#include <kelvane/protocol/error_codes.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane::jsonrpc {

struct Request {
    std::int64_t id = 0;
    std::string method;
    Value params = Value::array();
    Value kwargs;  // null when the call had no keyword arguments
};

struct Reply {
    std::int64_t id = 0;
    Value result;
    std::optional<RpcError> error;
};

// The JSON object a line of text holds: nothing when it holds none or nests deeper than 128
// levels (copying or printing a value recurses once per level, so a line of brackets could
// overflow the stack). A number too large for a double reads as a text holding its literal.
std::optional<Value> parseObject(std::string_view text);

std::string encodeRequest(const Request& request);
std::optional<Request> decodeRequest(std::string_view text);

std::string encodeResult(std::int64_t id, const Value& result);
std::string encodeError(std::int64_t id, const RpcError& error);
// Nothing for text that is not JSON, nests deeper than 128 levels, has no integer id, has a
// "jsonrpc" member other than "2.0", has an "error" that is neither an object nor null, or has
// neither result nor error. A number too large for a double reads as a text holding its literal
// ("1e999"); an error code outside the range of int is clamped to it.
std::optional<Reply> decodeReply(std::string_view text);

// The keyword argument that gives a call its own time limit in milliseconds: the controller
// answers within it, and the client waits that long plus a margin.
inline constexpr std::string_view timeoutKey = "timeout_ms";
inline Value timeoutKwargs(std::int64_t milliseconds) { return Value{{timeoutKey, milliseconds}}; }

// JSON text of a value; texts that are not valid UTF-8 are repaired rather than refused.
std::string toJson(const Value& value);

}  // namespace kelvane::jsonrpc
