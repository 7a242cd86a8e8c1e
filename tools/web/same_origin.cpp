#include "same_origin.hpp"

#include <algorithm>
#include <cctype>

namespace kelvane::web {
namespace {

bool isLoopback(std::string_view host) { return host.starts_with("127."); }

// Browsers resolve "localhost" to the loopback address themselves, so it cannot be rebound.
bool namesServer(const ServedAddress& served, std::string_view hostAndPort) {
    auto port = ":" + std::to_string(served.port);
    return hostAndPort == served.host + port || (isLoopback(served.host) && hostAndPort == "localhost" + port);
}

bool isJson(std::string_view contentType) {
    auto mediaType = contentType.substr(0, contentType.find(';'));
    while (!mediaType.empty() && mediaType.back() == ' ') mediaType.remove_suffix(1);
    std::string lower(mediaType);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower == "application/json";
}

}  // namespace

std::optional<std::string> foreignPostProblem(const ServedAddress& served, std::string_view host,
                                              std::string_view origin, std::string_view contentType) {
    if (!namesServer(served, host)) return "Host must name the server's own address and port";
    constexpr std::string_view scheme = "http://";
    if (!origin.empty() && !(origin.starts_with(scheme) && namesServer(served, origin.substr(scheme.size())))) {
        return "Origin must be the server's own page";
    }
    if (!isJson(contentType)) return "Content-Type must be application/json";
    return std::nullopt;
}

}  // namespace kelvane::web
