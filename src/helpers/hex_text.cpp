#include "helpers/hex_text.hpp"

#include <cctype>
#include <optional>
#include <stdexcept>

namespace kelvane::hex {
namespace {

int characterValue(char c) {
    if (c >= '0' && c <= '9') return c - 48;
    if (c >= 'A' && c <= 'F') return c - 55;
    return static_cast<unsigned char>(c) - 87;
}

int digitValue(char c) {
    if (std::isdigit(static_cast<unsigned char>(c))) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Scans a hexadecimal number after optional leading blanks; nothing when no digit follows.
std::optional<unsigned> scanHex(std::string_view pair) {
    std::size_t i = 0;
    while (i < pair.size() && std::isspace(static_cast<unsigned char>(pair[i]))) ++i;
    if (i == pair.size() || digitValue(pair[i]) < 0) return std::nullopt;
    unsigned value = 0;
    for (; i < pair.size() && digitValue(pair[i]) >= 0; ++i) value = value * 16 + digitValue(pair[i]);
    return value;
}

}  // namespace

std::string fromText(std::string_view text) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(text.size() * 2);
    for (unsigned char byte : text) {
        hex += digits[byte >> 4];
        hex += digits[byte & 0x0f];
    }
    return hex;
}

std::vector<int> pairValues(std::string_view hex) {
    if (hex.size() % 2 != 0) throw std::out_of_range("hex text of odd length");
    std::vector<int> values;
    values.reserve(hex.size() / 2);
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        values.push_back(16 * characterValue(hex[i]) + characterValue(hex[i + 1]));
    }
    return values;
}

std::string bufferFromPairs(std::string_view hex) {
    if (hex.empty()) throw std::out_of_range("empty hex text");
    std::string buffer(hex.size() / 2 + 1, '\0');
    unsigned scanned = 0;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        if (auto value = scanHex(hex.substr(i, 2))) scanned = *value;
        buffer[i / 2] = static_cast<char>(scanned & 0xff);
    }
    return buffer;
}

std::string textFromPairs(std::string_view hex) {
    std::string buffer = bufferFromPairs(hex);
    return buffer.substr(0, buffer.find('\0'));
}

}  // namespace kelvane::hex
