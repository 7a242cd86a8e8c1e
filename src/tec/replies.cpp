#include "tec/replies.hpp"

#include "helpers/regex_group.hpp"
#include <kelvane/protocol/tec_commands.hpp>

#include <cmath>
#include <limits>
#include <locale>
#include <sstream>

namespace kelvane::tec {
namespace {

float groupValue(const std::string& answer, const AnswerValue& value) {
    std::optional<RpcError> ignored;
    Value text = findSubStringByRegexGroup(answer, value.pattern, value.group, &ignored);
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
        sample.sensors[i] = groupValue(temperatures[i], temperatureValue);
    }
    sample.pwm = groupValue(power, pwmValue);
    sample.current = groupValue(power, currentValue);
    return sample;
}

}  // namespace kelvane::tec
