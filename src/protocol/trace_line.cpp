#include <kelvane/protocol/trace_line.hpp>

#include <kelvane/protocol/json_rpc.hpp>

#include <algorithm>
#include <array>

namespace kelvane::trace {
namespace {

// By Outcome's value.
constexpr std::array<std::string_view, 5> outcomeWords = {"result", "error", "timeout", "not_reachable", "closed"};

std::optional<Outcome> outcomeNamed(std::string_view word) {
    auto found = std::find(outcomeWords.begin(), outcomeWords.end(), word);
    if (found == outcomeWords.end()) return std::nullopt;
    return static_cast<Outcome>(found - outcomeWords.begin());
}

std::string field(std::string_view name, const Value& value) {
    return ",\"" + std::string(name) + "\":" + jsonrpc::toJson(value);
}

}  // namespace

std::string_view outcomeWord(Outcome outcome) { return outcomeWords.at(static_cast<std::size_t>(outcome)); }

Outcome outcomeOf(const std::optional<RpcError>& error) {
    if (!error) return Outcome::result;
    switch (error->kind) {
        case RpcError::Kind::controller:
            return Outcome::error;
        case RpcError::Kind::timeout:
            return Outcome::timeout;
        case RpcError::Kind::notReachable:
            return Outcome::notReachable;
        case RpcError::Kind::closed:
            return Outcome::closed;
    }
    return Outcome::error;
}

// Written field by field so the fields stand in the order a person reads them.
std::string encode(const TraceLine& line) {
    std::string text = "{\"time\":" + jsonrpc::toJson(line.time);
    text += field("t", line.t);
    text += field("endpoint", line.endpoint);
    text += field("id", line.id);
    text += field("method", line.method);
    text += field("params", line.params);
    text += field("kwargs", line.kwargs);
    text += field("outcome", outcomeWord(line.outcome));
    if (line.outcome == Outcome::result) {
        text += field("result", line.result);
    } else {
        text += field("error", {{"code", line.errorCode}, {"message", line.errorMessage}});
    }
    text += field("ms", line.ms);
    return text + "}\n";
}

std::variant<TraceLine, std::string> parse(std::string_view text) {
    const auto parsed = jsonrpc::parseObject(text);
    if (!parsed || !parsed->contains("method") || !(*parsed)["method"].is_string()) {
        return std::string("not a trace line");
    }
    const Value& json = *parsed;
    try {
        TraceLine line;
        const std::string word = json.value("outcome", std::string());
        const auto outcome = outcomeNamed(word);
        if (!outcome) return "unknown outcome \"" + word + "\"";
        line.outcome = *outcome;
        line.time = json.value("time", std::string());
        line.t = json.value("t", 0.0);
        line.endpoint = json.value("endpoint", std::string());
        line.id = json.value("id", std::int64_t{0});
        line.method = json["method"].get<std::string>();
        line.params = json.value("params", Value::array());
        line.kwargs = json.value("kwargs", Value());
        line.ms = json.value("ms", 0.0);
        if (line.outcome == Outcome::result) {
            line.result = json.value("result", Value());
            return line;
        }
        const Value error = json.value("error", Value::object());
        if (!error.is_object()) return std::string("\"error\" is not an object");
        line.errorCode = error.value("code", 0);
        line.errorMessage = error.value("message", std::string());
        return line;
    } catch (const Value::exception& error) {
        return std::string(error.what());
    }
}

}  // namespace kelvane::trace
