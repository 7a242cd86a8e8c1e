// A slot's TEC CSV file as the library writes it and the tools read it back: a header line each
// time the slot's monitoring is switched on, then one line per measurement; and the two checks
// the library makes on each measured sample. The Python package keeps a copy of the layout and
// the checks (python/kelvane/tec.py), which its tests hold against this one.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane::tec {

// One sample of a slot: four temperature sensors (degrees Celsius), the power stage's PWM
// (percent) and current (amperes), in single precision as the controller reports them.
struct TecSample {
    float sensors[4] = {};
    float pwm = 0.0f;
    float current = 0.0f;
};

inline constexpr std::string_view csvHeader = "Timestamp,Sensor1,Sensor2,Sensor3,Sensor4,PWM,Current,subsubtestname";
inline constexpr std::string_view csvLineEnd = "\r\n";

// A measurement's time stamp: local time in this date pattern.
inline constexpr std::string_view measurementTimeStamp = "MM/dd/yyyy HH:mm:ss.SSS";

// "<time stamp>,<sensor 1>,...,<sensor 4>,<PWM>,<current>,<item>\r\n": the numbers with two
// decimals whatever the locale, the item (the test step in the slot) as given.
std::string readingLine(std::string_view timeStamp, const TecSample& sample, std::string_view item);

// A measurement that lacks an answer: "<time stamp>,<answer 1>,...,<answer 4>,<power answer>"
// (the answers as they came, an absent one as its printed text), this mark and the line end.
inline constexpr std::string_view missingAnswerMark = " get null value.";
std::string missingAnswerLine(std::string_view timeStamp, const std::array<std::string, 5>& answers);

// Reading a line back. Without its line end, if it has one.
std::string_view withoutLineEnd(std::string_view line);
bool isMissingAnswerLine(std::string_view lineWithoutEnd);

struct ReadingFields {
    std::string timeStamp;
    std::array<double, 4> sensors{};
    double pwm = 0;
    double current = 0;
    std::string item;  // the rest of the line, commas and all
};
// The fields of a reading line without its line end; nothing when a number does not read whole.
std::optional<ReadingFields> readReadingLine(std::string_view lineWithoutEnd);

// The checks of a measured sample; a line that fails one goes to the failure records. At the
// limits nothing fails, and a value that is not a number fails neither check.
inline constexpr double minimumTemperature = 21.5;
inline constexpr float sensorAgreementBand = 3.0f;
// Any of the four sensors below the minimum, compared in double precision.
bool belowMinimum(const TecSample& sample);
// Two of sensors 1 to 3 further apart than the band, in single precision; sensor 4 is left out
// on purpose.
bool sensorsDisagree(const TecSample& sample);

}  // namespace kelvane::tec
