// The TEC controllers' text commands and their answers, as they travel over the fixture's CAN
// bus (can_bus.hpp): the answers as a controller writes them, and as the station reads them.
#pragma once

#include <array>
#include <string_view>

namespace kelvane::tec {

// In the order a measurement sends them: sensors 1 to 4, then the power stage.
inline constexpr std::array<std::string_view, 4> temperatureCommands = {"get tec temp:1", "get tec temp:2",
                                                                        "get tec temp:3", "get tec temp:4"};
inline constexpr std::string_view powerCommand = "get tec power";

// An answer that worked ends in " OK", one that did not in " FAIL". The station takes any answer
// holding "OK", in any letter case, as one that worked.
inline constexpr std::string_view okEnding = " OK";
inline constexpr std::string_view okMark = okEnding.substr(1);
inline constexpr std::string_view failEnding = " FAIL";

// The answers as a controller writes them (printf formats): a temperature in degrees Celsius;
// the power stage's volts, amperes, watts and PWM duty in percent, negative while it cools.
inline constexpr const char* temperatureAnswerFormat = "TEC temp: %.2f C OK";
inline constexpr const char* powerAnswerFormat = "TEC : %.2f V, %.2f A, %.2f W ,PWM: %.2f%% OK";

// The answers as the station reads them: the pattern and the group of each value. The dots are
// left unescaped on purpose: they match any character, as the station's tools have always read
// these answers. The PWM needs the whole power answer up to its "OK"; the current does not.
struct AnswerValue {
    const char* pattern;
    int group;
};
inline constexpr AnswerValue temperatureValue = {"TEC temp: (\\d+.\\d+) C", 1};
inline constexpr AnswerValue pwmValue = {"TEC : (\\d+.\\d+) V, (\\d+.\\d+) A, (\\d+.\\d+) W ,PWM: (-?\\d+.\\d+)% OK",
                                         4};
inline constexpr AnswerValue currentValue = {"TEC : (\\d+.\\d+) V, (\\d+.\\d+) A", 2};

}  // namespace kelvane::tec
