// Time stamps that a person reads, in the user's own locale and time zone.
#pragma once

#include <string>
#include <string_view>

namespace kelvane {

// `secondsSince1970` formatted with an ICU date pattern ("MM/dd/yyyy HH:mm:ss.SSS", say) in the
// default locale and time zone. Pattern letters keep their ICU meaning: "YYYY" is the week-based
// year, "SSSS" four digits of fractional seconds. Empty when ICU cannot format it.
std::string formatLocalTime(double secondsSince1970, std::string_view icuPattern);

}  // namespace kelvane
