// The hex and number helpers read CAN payloads and controller texts, and the C exports hand
// them any zero-terminated text a host passes.
#include "helpers/hex_text.hpp"
#include "helpers/number_text.hpp"

#include <kelvane/kelvane.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

using namespace kelvane;

namespace {

void check(bool holds) {
    if (!holds) std::abort();
}

// Hex text made by fromText reads back as the same bytes, up to the first zero byte.
void hexRoundTrip(std::string_view bytes) {
    std::string hex = hex::fromText(bytes);
    check(hex.size() == 2 * bytes.size());
    std::vector<int> values = hex::pairValues(hex);
    for (std::size_t i = 0; i < bytes.size(); ++i) check(values[i] == static_cast<std::uint8_t>(bytes[i]));
    if (!bytes.empty()) check(hex::textFromPairs(hex) == bytes.substr(0, bytes.find('\0')));
}

// Arbitrary text: the documented range errors, nothing else.
void hexOfAnyText(std::string_view text) {
    try {
        check(hex::pairValues(text).size() == text.size() / 2);
    } catch (const std::out_of_range&) {
        check(text.size() % 2 != 0);
    }
    try {
        check(hex::bufferFromPairs(text).size() == text.size() / 2 + 1);
    } catch (const std::out_of_range&) {
        check(text.empty());
    }
}

// A pure number is one strtod reads whole, up to trailing blanks.
void numberAgreesWithStrtod(const char* text) {
    if (!isPureFloatText(text)) return;
    char* end = nullptr;
    std::strtod(text, &end);
    check(end != text);
    while (*end && std::strchr(" \t\n\v\f\r", *end)) ++end;
    check(*end == '\0');
}

void cExports(const std::string& text) {
    const char* c = text.c_str();  // a C host sees the text up to its first zero byte
    check(isPureFloat(c) == isPureFloatText(c));
    if (char* decoded = stringFromHexString(c)) {
        check(std::strlen(decoded) <= std::strlen(c) / 2);
        std::free(decoded);
    } else {
        check(*c == '\0');
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    hexRoundTrip(text);
    hexOfAnyText(text);
    numberAgreesWithStrtod(text.c_str());
    cExports(text);
    return 0;
}
