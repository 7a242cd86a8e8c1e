#include "message.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>

namespace kelvane::web {
namespace {

bool sameLetters(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// "a%20b+c" as "a b c"; a '%' not followed by two hex digits stays as it is.
std::string percentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '+') {
            decoded += ' ';
        } else if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0) {
            decoded += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

}  // namespace

std::string_view Request::header(std::string_view name) const {
    for (const auto& [field, value] : headers) {
        if (sameLetters(field, name)) return value;
    }
    return {};
}

std::optional<std::string> Request::parameter(std::string_view name) const {
    std::string_view rest = query;
    while (!rest.empty()) {
        auto pair = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
        auto equals = pair.find('=');
        if (percentDecoded(pair.substr(0, equals)) != name) continue;
        return equals == std::string_view::npos ? std::string() : percentDecoded(pair.substr(equals + 1));
    }
    return std::nullopt;
}

Response errorResponse(int status, std::string_view problem) {
    nlohmann::json body = {{"error", problem}};
    return {.status = status, .body = body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)};
}

}  // namespace kelvane::web
