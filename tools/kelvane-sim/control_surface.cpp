#include "control_surface.hpp"

#include <kelvane/protocol/sim_methods.hpp>

namespace kelvane::sim {
namespace {

namespace control = methods::sim;

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

bool ControlSurface::handles(std::string_view method) { return method.starts_with(control::prefix); }

Outcome ControlSurface::call(const jsonrpc::Request& request) {
    const auto& method = request.method;
    if (method == control::script) return addScripts(request.params);
    if (method == control::clearScripts) {
        scripts_.clear();
        return Outcome::reply(doneReply);
    }
    if (method == control::journal) return Outcome::reply(journal_.entries());
    if (method == control::clearJournal) {
        journal_.clear();
        return Outcome::reply(doneReply);
    }
    if (method == control::state) return Outcome::reply(fixture_.state());
    if (method == control::set) return changeWorld(request.params);
    if (method == control::reset) return resetAll();
    return Outcome::failure(jsonrpc::methodNotFoundError, "method not found: " + method);
}

// All or nothing: one malformed script adds none of them.
Outcome ControlSurface::addScripts(const Value& params) {
    Value list = scriptList(params);
    if (list.empty()) return invalidParams(std::string(control::script), "no script given");
    std::vector<Script> scripts;
    for (std::size_t i = 0; i < list.size(); ++i) {
        auto parsed = parseScript(list[i]);
        if (auto* problem = std::get_if<std::string>(&parsed)) {
            return invalidParams(std::string(control::script), "script " + std::to_string(i + 1) + ": " + *problem);
        }
        scripts.push_back(std::move(std::get<Script>(parsed)));
    }
    scripts_.add(std::move(scripts));
    return Outcome::reply(doneReply);
}

Outcome ControlSurface::changeWorld(const Value& params) {
    if (params.size() != 1) return invalidParams(std::string(control::set), "expected one dictionary of settings");
    if (auto problem = fixture_.set(params[0])) return invalidParams(std::string(control::set), *problem);
    return Outcome::reply(doneReply);
}

Outcome ControlSurface::resetAll() {
    fixture_.reset();
    scripts_.clear();
    journal_.clear();
    return Outcome::reply(doneReply);
}

}  // namespace kelvane::sim
