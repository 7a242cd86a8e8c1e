// Whether a text is one floating-point number and nothing else.
#pragma once

#include <string_view>

namespace kelvane {

// Blanks around the number are allowed; a sign, digits with an optional fraction and an optional
// exponent make the number. "1.5", " -2 ", "3e4" are numbers; "", "1.5V", "1 2" are not.
bool isPureFloatText(std::string_view text);

}  // namespace kelvane
