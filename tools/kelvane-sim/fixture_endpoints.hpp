// Where the fixtures of a simulated station listen. A station host reaches each fixture at the
// controller port of its own address, so fixture k sits k - 1 addresses above the first.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kelvane::sim {

// The endpoints of `fixtures` fixtures, in order: the first at `bind` (by default
// tcp://127.0.0.1:7805 for one fixture and tcp://127.0.1.1:7805 for several), fixture k at the
// address whose last octet is k - 1 higher, on the same port; port "*" or 0 lets each take a free
// port of its own. One fixture may bind any endpoint; several need "tcp://A.B.C.D:PORT" with
// room up to .255. Gives the reason when the fixtures cannot be placed.
std::variant<std::vector<std::string>, std::string> fixtureEndpoints(const std::optional<std::string>& bind,
                                                                     int fixtures);

}  // namespace kelvane::sim
