// One HTTP request as a route sees it, and the answer it gives.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelvane::web {

using Fields = std::vector<std::pair<std::string, std::string>>;

struct Request {
    std::string method;  // "GET", "POST"
    std::string path;    // the target up to '?'
    std::string query;   // the target after '?', as sent
    Fields headers;
    std::string body;

    // The value of header `name` (any case), empty when absent.
    std::string_view header(std::string_view name) const;
    // Query parameter `name`, percent-decoded; nullopt when absent.
    std::optional<std::string> parameter(std::string_view name) const;
};

struct Response {
    int status = 200;
    std::string body{};
    std::string contentType = "application/json";
    Fields headers{};  // more fields, e.g. Content-Security-Policy
};

// `status` with {"error": problem}: how every JSON endpoint refuses.
Response errorResponse(int status, std::string_view problem);

// Where a page's live events stream from.
inline constexpr std::string_view eventsPath = "/api/events";

// The fields every page file is served with: it runs only its own scripts, styles and images,
// is never framed by another site, and sends no referrer.
inline Fields pageFileHeaders() {
    return {{"Content-Security-Policy", "default-src 'self'; img-src 'self' data:; frame-ancestors 'none'"},
            {"Referrer-Policy", "no-referrer"}};
}

}  // namespace kelvane::web
