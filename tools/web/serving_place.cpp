#include "serving_place.hpp"

#include <charconv>

namespace kelvane::web {

bool ServingPlace::isLoopback() const { return address.starts_with("127.") || address == "localhost"; }

std::variant<ServingPlace, std::string> readServingPlace(std::string_view text) {
    ServingPlace place;
    if (auto colon = text.rfind(':'); colon != std::string_view::npos) {
        place.address = text.substr(0, colon);
        text.remove_prefix(colon + 1);
        if (place.address.empty()) return "--http: the address before ':' is missing";
    }
    constexpr int highestPort = 65535;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), place.port);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || place.port < 0 ||
        place.port > highestPort) {
        return "--http: expected PORT or ADDRESS:PORT, PORT 0 to 65535";
    }
    return place;
}

}  // namespace kelvane::web
