#include "tec/replies.hpp"

#include "helpers/regex_group.hpp"

#include <cmath>
#include <limits>
#include <locale>
#include <sstream>

namespace kelvane::tec {
namespace {

// The controllers' own answer forms. The dots are left unescaped on purpose: they match any
// character, as the station's tools have always read these answers.
constexpr const char* temperaturePattern = "TEC temp: (\\d+.\\d+) C";
constexpr const char* powerPattern =
    "TEC : (\\d+.\\d+) V, (\\d+.\\d+) A, (\\d+.\\d+) W ,PWM: (-?\\d+.\\d+)% OK";
constexpr const char* currentPattern = "TEC : (\\d+.\\d+) V, (\\d+.\\d+) A";
constexpr int temperatureGroup = 1;
constexpr int pwmGroup = 4;
constexpr int currentGroup = 2;

float groupValue(const std::string& answer, const char* pattern, int group) {
    std::optional<RpcError> ignored;
    Value text = findSubStringByRegexGroup(answer, pattern, group, &ignored);
    return text.is_string() ? leadingFloat(text.get<std::string>()) : 0.0f;
}

}  // namespace

float leadingFloat(const std::string& text) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    float value = 0.0f;
    if (stream >> value) return value;
    // Beyond float range the read fails and leaves the largest float or infinity, depending on
    // the standard library; either way the number stands as infinity.
    if (std::fabs(value) >= std::numeric_limits<float>::max()) {
        return std::copysign(std::numeric_limits<float>::infinity(), value);
    }
    return 0.0f;
}

TecSample parseSample(const std::string (&temperatures)[4], const std::string& power) {
    TecSample sample;
    for (int i = 0; i < 4; ++i) {
        sample.sensors[i] = groupValue(temperatures[i], temperaturePattern, temperatureGroup);
    }
    sample.pwm = groupValue(power, powerPattern, pwmGroup);
    sample.current = groupValue(power, currentPattern, currentGroup);
    return sample;
}

}  // namespace kelvane::tec
