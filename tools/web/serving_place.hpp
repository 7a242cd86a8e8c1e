// Where a tool serves its browser page, as its --http option names it: "PORT" serves on the
// loopback address, where only this machine reaches it; another address must be named
// ("ADDRESS:PORT"). Port 0 picks a free port.
#pragma once

#include <string>
#include <string_view>
#include <variant>

namespace kelvane::web {

struct ServingPlace {
    std::string address = "127.0.0.1";
    int port = 0;

    // Whether only this machine can reach it.
    bool isLoopback() const;
};

// The place `text` names, or why it names none (for a usage error).
std::variant<ServingPlace, std::string> readServingPlace(std::string_view text);

}  // namespace kelvane::web
