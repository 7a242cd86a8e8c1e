#include "platform/local_time.hpp"

#include <unicode/smpdtfmt.h>
#include <unicode/unistr.h>

namespace kelvane {

std::string formatLocalTime(double secondsSince1970, std::string_view icuPattern) {
    UErrorCode status = U_ZERO_ERROR;
    icu::SimpleDateFormat format(
        icu::UnicodeString::fromUTF8(icu::StringPiece(icuPattern.data(), static_cast<int32_t>(icuPattern.size()))),
        status);
    if (U_FAILURE(status)) return {};
    icu::UnicodeString formatted;
    format.format(static_cast<UDate>(secondsSince1970 * 1000.0), formatted);
    std::string result;
    formatted.toUTF8String(result);
    return result;
}

}  // namespace kelvane
