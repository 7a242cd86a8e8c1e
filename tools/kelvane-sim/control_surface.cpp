#include "control_surface.hpp"

namespace kelvane::sim {
namespace {

constexpr std::string_view controlNamespace = "sim.";
constexpr std::string_view scriptMethod = "sim.script";
constexpr std::string_view clearScriptsMethod = "sim.clear_scripts";
constexpr std::string_view journalMethod = "sim.journal";
constexpr std::string_view clearJournalMethod = "sim.clear_journal";
constexpr std::string_view stateMethod = "sim.state";
constexpr std::string_view setMethod = "sim.set";
constexpr std::string_view resetMethod = "sim.reset";

constexpr std::string_view doneReply = "done";

Outcome invalidParams(const std::string& method, const std::string& why) {
    return Outcome::failure(jsonrpc::invalidParamsError, method + ": " + why);
}

// Scripts come as positional arguments, or as one argument that is a list of them.
Value scriptList(const Value& params) {
    if (params.size() == 1 && params[0].is_array()) return params[0];
    return params;
}

}  // namespace

bool ControlSurface::handles(std::string_view method) { return method.starts_with(controlNamespace); }

Outcome ControlSurface::call(const jsonrpc::Request& request) {
    const auto& method = request.method;
    if (method == scriptMethod) return addScripts(request.params);
    if (method == clearScriptsMethod) {
        scripts_.clear();
        return Outcome::reply(doneReply);
    }
    if (method == journalMethod) return Outcome::reply(journal_.entries());
    if (method == clearJournalMethod) {
        journal_.clear();
        return Outcome::reply(doneReply);
    }
    if (method == stateMethod) return Outcome::reply(fixture_.state());
    if (method == setMethod) return changeWorld(request.params);
    if (method == resetMethod) return resetAll();
    return Outcome::failure(jsonrpc::methodNotFoundError, "method not found: " + method);
}

// All or nothing: one malformed script adds none of them.
Outcome ControlSurface::addScripts(const Value& params) {
    Value list = scriptList(params);
    if (list.empty()) return invalidParams(std::string(scriptMethod), "no script given");
    std::vector<Script> scripts;
    for (std::size_t i = 0; i < list.size(); ++i) {
        auto parsed = parseScript(list[i]);
        if (auto* problem = std::get_if<std::string>(&parsed)) {
            return invalidParams(std::string(scriptMethod), "script " + std::to_string(i + 1) + ": " + *problem);
        }
        scripts.push_back(std::move(std::get<Script>(parsed)));
    }
    scripts_.add(std::move(scripts));
    return Outcome::reply(doneReply);
}

Outcome ControlSurface::changeWorld(const Value& params) {
    if (params.size() != 1) return invalidParams(std::string(setMethod), "expected one dictionary of settings");
    if (auto problem = fixture_.set(params[0])) return invalidParams(std::string(setMethod), *problem);
    return Outcome::reply(doneReply);
}

Outcome ControlSurface::resetAll() {
    fixture_.reset();
    scripts_.clear();
    journal_.clear();
    return Outcome::reply(doneReply);
}

}  // namespace kelvane::sim
