// The pattern helper reads controller answers (the TEC texts) with the caller's patterns.
// Input: a byte whose high half is the group number (signed) and whose low half picks one of
// the patterns the station code reads answers with, then the text; or, when the rest holds a
// zero byte, "pattern\0text".
#include "fuzz_session.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

using namespace kelvane;

namespace {

constexpr std::array knownPatterns = {
    "^TEC temp: (\\d+.\\d+) C",
    "TEC : ([-\\d.]+) V, ([-\\d.]+) A, ([-\\d.]+) W ,PWM:\\s*([-\\d.]+)% (OK|FAIL)",
    "Fixture(\\d+)",
};
// Patterns are written by the station's developers, not sent from outside: a short one is
// enough to vary how the texts are read, and keeps out patterns that backtrack for minutes.
constexpr std::size_t maxPatternSize = 64;

FixtureControl& session() {
    static auto shared = fuzz::makeSession(fuzz::makeFileRoot());
    return *shared;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    std::int32_t group = static_cast<std::int8_t>(data[0]) >> 4;  // -8..7
    std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
    std::string pattern, text;
    if (auto zero = rest.find('\0'); zero != std::string_view::npos) {
        pattern = rest.substr(0, zero);
        text = rest.substr(zero + 1);
        if (pattern.size() > maxPatternSize) return 0;
    } else {
        pattern = knownPatterns[(data[0] & 0x0f) % knownPatterns.size()];
        text = rest;
    }
    std::optional<RpcError> error;
    Value found;
    try {
        found = session().findSubStringByRegexGroup(text, pattern, group, &error);
    } catch (const std::out_of_range&) {
        return 0;  // a group the pattern does not have: the documented range error
    }
    if (!found.is_null() && !found.is_string()) std::abort();
    if (error && !found.is_null()) std::abort();
    return 0;
}
