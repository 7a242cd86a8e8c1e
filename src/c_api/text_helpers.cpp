// The exported text helpers: they need no device.
#include <kelvane/kelvane.h>

#include "c_api/guarded.hpp"
#include "helpers/hex_text.hpp"
#include "helpers/number_text.hpp"

#include <cstdlib>
#include <cstring>
#include <string>

using kelvane::guarded;

extern "C" {

char* stringFromHexString(const char* hex) {
    // The session's decoder has no answer for an empty text; C callers get NULL instead.
    if (!hex || !*hex) return nullptr;
    return guarded<char*>(nullptr, [&] {
        std::string buffer = kelvane::hex::bufferFromPairs(hex);
        auto* copy = static_cast<char*>(std::malloc(buffer.size()));
        if (copy) std::memcpy(copy, buffer.data(), buffer.size());
        return copy;
    });
}

bool isPureFloat(const char* text) {
    return guarded(false, [&] { return text && kelvane::isPureFloatText(text); });
}

}  // extern "C"
