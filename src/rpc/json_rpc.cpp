#include "rpc/json_rpc.hpp"

namespace kelvane::jsonrpc {
namespace {

// Copying, printing and freeing a parsed value recurses once per level, so a peer could crash
// us with a frame of nothing but brackets. Real messages nest a handful of levels.
constexpr int maxNestingDepth = 128;

bool nestsTooDeep(std::string_view text) {
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped) escaped = false;
            else if (c == '\\') escaped = true;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > maxNestingDepth) return true;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

std::optional<Value> parse(std::string_view text) {
    if (nestsTooDeep(text)) return std::nullopt;
    Value parsed = Value::parse(text, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) return std::nullopt;
    return parsed;
}

std::optional<std::int64_t> integerId(const Value& message) {
    auto id = message.find("id");
    if (id == message.end() || !id->is_number_integer()) return std::nullopt;
    return id->get<std::int64_t>();
}

RpcError errorFrom(const Value& error) {
    RpcError result;
    if (!error.is_object()) {
        result.message = describe(error);
        return result;
    }
    if (auto code = error.find("code"); code != error.end() && code->is_number_integer()) {
        result.code = static_cast<int>(code->get<std::int64_t>());
    }
    auto message = error.find("message");
    result.message = message == error.end() ? "" : describe(*message);
    return result;
}

}  // namespace

std::string toJson(const Value& value) {
    return value.dump(-1, ' ', false, Value::error_handler_t::replace);
}

std::string encodeRequest(const Request& request) {
    Value message = {{"jsonrpc", "2.0"},
                     {"id", request.id},
                     {"method", request.method},
                     {"params", request.params.is_array() ? request.params : Value::array()}};
    if (request.kwargs.is_object()) message["kwargs"] = request.kwargs;
    return toJson(message);
}

std::optional<Request> decodeRequest(std::string_view text) {
    auto message = parse(text);
    if (!message) return std::nullopt;
    auto id = integerId(*message);
    auto method = message->find("method");
    if (!id || method == message->end() || !method->is_string()) return std::nullopt;
    Request request;
    request.id = *id;
    request.method = method->get<std::string>();
    if (auto params = message->find("params"); params != message->end() && params->is_array()) {
        request.params = *params;
    }
    if (auto kwargs = message->find("kwargs"); kwargs != message->end() && kwargs->is_object()) {
        request.kwargs = *kwargs;
    }
    return request;
}

std::string encodeResult(std::int64_t id, const Value& result) {
    return toJson({{"jsonrpc", "2.0"}, {"id", id}, {"result", result}});
}

std::string encodeError(std::int64_t id, const RpcError& error) {
    return toJson({{"jsonrpc", "2.0"},
                   {"id", id},
                   {"error", {{"code", error.code}, {"message", error.message}}}});
}

std::optional<Reply> decodeReply(std::string_view text) {
    auto message = parse(text);
    if (!message) return std::nullopt;
    auto id = integerId(*message);
    if (!id) return std::nullopt;
    Reply reply;
    reply.id = *id;
    if (auto error = message->find("error"); error != message->end() && !error->is_null()) {
        reply.error = errorFrom(*error);
    } else if (auto result = message->find("result"); result != message->end()) {
        reply.result = *result;
    } else {
        return std::nullopt;
    }
    return reply;
}

}  // namespace kelvane::jsonrpc
