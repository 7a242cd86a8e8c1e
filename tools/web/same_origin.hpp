// Which POSTs a tool's page server takes. A page on another site can make the engineer's browser
// post to it, and a name that site controls can be made to resolve to the server's address: so
// only JSON, and only requests whose Host (and Origin, when sent) name the server's own address
// and port, which neither trick can forge.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kelvane::web {

struct ServedAddress {
    std::string host;  // as bound, e.g. "127.0.0.1"
    int port = 0;
};

// Why a POST is refused (403), or nullopt when it came from the server's own page.
std::optional<std::string> foreignPostProblem(const ServedAddress& served, std::string_view host,
                                              std::string_view origin, std::string_view contentType);

}  // namespace kelvane::web
