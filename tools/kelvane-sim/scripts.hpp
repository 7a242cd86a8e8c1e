// Scripted answers: "sim.script" makes the next calls of a method answer something other than
// what the model would (a fixed reply, an error, silence, a broken or misaddressed reply, or any
// reply text at all).
#pragma once

#include "outcome.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kelvane::sim {

enum class ScriptAction { reply, error, noReply, garbage, wrongId, oversize, raw };

// The action's name in a script dictionary and in the journal.
std::string_view actionName(ScriptAction action);

struct Script {
    // Just over the largest reply frame a client accepts.
    static constexpr std::size_t defaultOversizeBytes = (std::size_t{1} << 20) + 1;

    std::string method;
    ScriptAction action = ScriptAction::reply;
    std::optional<Value> reply;  // absent: the model answers (and acts)
    RpcError error;
    std::chrono::milliseconds delay{0};
    std::optional<std::int64_t> times;  // calls left; absent: every call until cleared
    std::size_t oversizeBytes = defaultOversizeBytes;
    // For raw: the reply text, "{id}" and "{result}" filled in when it is sent.
    std::string text;

    // The message text to send for the request with `id`, or nothing when the request is to be
    // swallowed. `modelAnswer` is asked only when the script has no reply of its own, so the
    // world changes only when the model answers.
    std::optional<std::string> messageFor(std::int64_t id, const std::function<Outcome()>& modelAnswer) const;
};

// One script dictionary read, or the reason it cannot be.
std::variant<Script, std::string> parseScript(const Value& description);

class ScriptBook {
public:
    // Scripts for one method queue in the order added.
    void add(std::vector<Script> scripts);
    // The script for this call of `method`, counted as used once; nothing when none is queued.
    std::optional<Script> take(const std::string& method);
    void clear() { queues_.clear(); }

private:
    std::map<std::string, std::deque<Script>> queues_;
};

}  // namespace kelvane::sim
