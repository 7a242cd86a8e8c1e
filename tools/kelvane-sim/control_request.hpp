// What POST /api/control accepts, decided before anything reaches a fixture. (Posts from
// elsewhere than the panel's own page never get this far: the HTTP server refuses them.)
#pragma once

#include <kelvane/protocol/json_rpc.hpp>

#include <string>
#include <string_view>
#include <variant>

namespace kelvane::sim {

struct ControlCall {
    int fixture = 1;
    jsonrpc::Request request;
};

// {"fixture": K, "method": "sim.…", "params": …} read, or the problem that makes it a 400.
// params may be absent (none), one dictionary (the one argument, as "sim.set" takes it) or a
// list of arguments.
std::variant<ControlCall, std::string> readControlCall(std::string_view body, int fixtures);

}  // namespace kelvane::sim
