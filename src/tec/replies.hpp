// Reading the values out of a TEC controller's answers.
#pragma once

#include <kelvane/protocol/tec_csv.hpp>

#include <string>

namespace kelvane::tec {

// The sample in the answers to "get tec temp:1".."4" and "get tec power". A value whose pattern
// does not match reads as 0.0; so does a PWM in a power answer that ends in "FAIL".
TecSample parseSample(const std::string (&temperatures)[4], const std::string& power);

// The leading decimal number of a text (blanks skipped), independent of the user's locale;
// 0.0 when there is none, infinity when it is too large for a float ("9e99").
float leadingFloat(const std::string& text);

}  // namespace kelvane::tec
