// What POST /api/control accepts, decided before anything reaches a fixture. A page on another
// site can make the engineer's browser post to the panel, and a name it controls can be made to
// resolve to the panel's address: so only JSON, and only requests whose Host (and Origin, when
// sent) name the panel's own address and port, which neither trick can forge.
#pragma once

#include <kelvane/protocol/json_rpc.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kelvane::sim {

struct PanelAddress {
    std::string host;  // as bound, e.g. "127.0.0.1"
    int port = 0;
};

struct ControlCall {
    int fixture = 1;
    jsonrpc::Request request;
};

struct Refusal {
    int status = 400;
    std::string problem;
};

// A 403 refusal unless the request came from the panel's own page.
std::optional<Refusal> refuseForeign(const PanelAddress& panel, std::string_view host, std::string_view origin,
                                     std::string_view contentType);

// {"fixture": K, "method": "sim.…", "params": …} read, or a 400 refusal naming the problem.
// params may be absent (none), one dictionary (the one argument, as "sim.set" takes it) or a
// list of arguments.
std::variant<ControlCall, Refusal> readControlCall(std::string_view body, int fixtures);

}  // namespace kelvane::sim
