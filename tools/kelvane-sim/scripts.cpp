#include "scripts.hpp"

#include <array>
#include <set>
#include <string_view>

namespace kelvane::sim {
namespace {

constexpr std::string_view garbageMessage = "\x01this reply is not JSON {";
// The largest padded reply a script may ask for: beyond the 64 MiB message limit of ZeroMQ
// peers such as the library, so a test can make a client drop its connection; yet harmless.
constexpr std::size_t maxOversizeBytes = std::size_t{128} << 20;
constexpr std::string_view idField = "{id}";
constexpr std::string_view resultField = "{result}";
// Longer delays are no use to anyone and would overflow the clock arithmetic.
constexpr long long longestDelayMs = 24LL * 60 * 60 * 1000;

struct ActionName {
    std::string_view name;
    ScriptAction action;
};
constexpr std::array actionNames = {
    ActionName{"reply", ScriptAction::reply},      ActionName{"error", ScriptAction::error},
    ActionName{"no_reply", ScriptAction::noReply}, ActionName{"garbage", ScriptAction::garbage},
    ActionName{"wrong_id", ScriptAction::wrongId}, ActionName{"oversize", ScriptAction::oversize},
    ActionName{"raw", ScriptAction::raw},
};

const std::set<std::string, std::less<>> knownKeys = {"method",   "action", "reply", "error",
                                                      "delay_ms", "times",  "bytes", "text"};

std::optional<ScriptAction> actionNamed(const Value& name) {
    for (const auto& known : actionNames) {
        if (isText(name, known.name)) return known.action;
    }
    return std::nullopt;
}

bool isCount(const Value& value, long long least) { return value.is_number_integer() && integerValue(value) >= least; }

// A reply with the right id whose message text is exactly `bytes` long (when that is more than
// an empty reply takes). Written by hand: encoding tens of MiB as JSON would hold the server up.
std::string paddedReply(std::int64_t id, std::size_t bytes) {
    const std::string head = R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"result":")";
    const std::string tail = "\"}";
    std::string reply = head;
    if (bytes > head.size() + tail.size()) reply.append(bytes - head.size() - tail.size(), 'x');
    return reply.append(tail);
}

// Every occurrence of `field` in `text` replaced by what `value` gives, asked for once.
std::string filledIn(std::string text, std::string_view field, const std::function<std::string()>& value) {
    auto at = text.find(field);
    if (at == std::string::npos) return text;
    const std::string filling = value();
    for (; at != std::string::npos; at = text.find(field, at + filling.size())) {
        text.replace(at, field.size(), filling);
    }
    return text;
}

std::optional<std::string> readError(const Value& error, RpcError& into) {
    if (!error.is_object()) return "\"error\" must be a dictionary with \"code\" and \"message\"";
    auto code = error.find("code");
    auto message = error.find("message");
    if (code == error.end() || !code->is_number_integer() || message == error.end() || !message->is_string()) {
        return "\"error\" needs an integer \"code\" and a text \"message\"";
    }
    into = RpcError{static_cast<int>(integerValue(*code)), message->get<std::string>()};
    return std::nullopt;
}

}  // namespace

std::variant<Script, std::string> parseScript(const Value& description) {
    if (!description.is_object()) return "a script must be a dictionary";
    for (const auto& [key, value] : description.items()) {
        if (!knownKeys.contains(key)) return "unknown script key \"" + key + "\"";
    }
    Script script;
    auto method = description.find("method");
    if (method == description.end() || !method->is_string()) return "\"method\" must be a text";
    script.method = method->get<std::string>();
    if (auto action = description.find("action"); action != description.end()) {
        auto known = actionNamed(*action);
        if (!known) return "unknown action " + jsonrpc::toJson(*action);
        script.action = *known;
    }
    if (auto reply = description.find("reply"); reply != description.end()) script.reply = *reply;
    if (script.action == ScriptAction::error) {
        auto error = description.find("error");
        if (error == description.end()) return "action \"error\" needs \"error\"";
        if (auto problem = readError(*error, script.error)) return *problem;
    }
    if (auto delay = description.find("delay_ms"); delay != description.end()) {
        if (!isCount(*delay, 0) || integerValue(*delay) > longestDelayMs) {
            return "\"delay_ms\" must be an integer from 0 to " + std::to_string(longestDelayMs);
        }
        script.delay = std::chrono::milliseconds(integerValue(*delay));
    }
    if (script.action == ScriptAction::raw) {
        auto text = description.find("text");
        if (text == description.end() || !text->is_string()) return "action \"raw\" needs a text \"text\"";
        script.text = text->get<std::string>();
    }
    if (auto times = description.find("times"); times != description.end()) {
        if (!isCount(*times, 1)) return "\"times\" must be an integer of 1 or more";
        script.times = integerValue(*times);
    }
    if (auto bytes = description.find("bytes"); bytes != description.end()) {
        if (!isCount(*bytes, 1) || integerValue(*bytes) > static_cast<long long>(maxOversizeBytes)) {
            return "\"bytes\" must be an integer from 1 to " + std::to_string(maxOversizeBytes);
        }
        script.oversizeBytes = static_cast<std::size_t>(integerValue(*bytes));
    }
    return script;
}

std::optional<std::string> Script::messageFor(std::int64_t id, const std::function<Outcome()>& modelAnswer) const {
    auto answer = [&] { return reply ? Outcome::reply(*reply) : modelAnswer(); };
    switch (action) {
        case ScriptAction::reply:
            return encodeOutcome(id, answer());
        case ScriptAction::error:
            return jsonrpc::encodeError(id, error);
        case ScriptAction::noReply:
            return std::nullopt;
        case ScriptAction::garbage:
            return std::string(garbageMessage);
        case ScriptAction::wrongId:
            return encodeOutcome(~id, answer());  // ~id never equals id
        case ScriptAction::oversize:
            return paddedReply(id, oversizeBytes);
        case ScriptAction::raw: {
            // The model is asked (and acts) only when the text wants its result.
            auto result = [&] {
                Outcome outcome = answer();
                return jsonrpc::toJson(outcome.error ? Value(nullptr) : outcome.result);
            };
            return filledIn(filledIn(text, idField, [&] { return std::to_string(id); }), resultField, result);
        }
    }
    return std::nullopt;
}

std::string_view actionName(ScriptAction action) {
    for (const auto& known : actionNames) {
        if (known.action == action) return known.name;
    }
    return {};
}

void ScriptBook::add(std::vector<Script> scripts) {
    for (auto& script : scripts) queues_[script.method].push_back(std::move(script));
}

std::optional<Script> ScriptBook::take(const std::string& method) {
    auto found = queues_.find(method);
    if (found == queues_.end() || found->second.empty()) return std::nullopt;
    auto& queue = found->second;
    Script script = queue.front();
    if (script.times && --*queue.front().times == 0) queue.pop_front();
    if (queue.empty()) queues_.erase(found);
    return script;
}

}  // namespace kelvane::sim
