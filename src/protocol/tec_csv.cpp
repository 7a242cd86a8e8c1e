#include <kelvane/protocol/tec_csv.hpp>

#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <locale>
#include <sstream>

namespace kelvane::tec {
namespace {

constexpr char separator = ',';

std::string twoDecimals(float value) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(2) << static_cast<double>(value);
    return text.str();
}

// A field that is a number as a whole; an empty one is none.
std::optional<double> number(const std::string& field) {
    if (field.empty()) return std::nullopt;
    char* end = nullptr;
    double value = std::strtod(field.c_str(), &end);
    if (*end != '\0') return std::nullopt;
    return value;
}

}  // namespace

std::string readingLine(std::string_view timeStamp, const TecSample& sample, std::string_view item) {
    std::string line(timeStamp);
    for (float value :
         {sample.sensors[0], sample.sensors[1], sample.sensors[2], sample.sensors[3], sample.pwm, sample.current}) {
        line += separator + twoDecimals(value);
    }
    return line + separator + std::string(item) + std::string(csvLineEnd);
}

std::string missingAnswerLine(std::string_view timeStamp, const std::array<std::string, 5>& answers) {
    std::string line(timeStamp);
    for (const auto& answer : answers) line += separator + answer;
    return line + std::string(missingAnswerMark) + std::string(csvLineEnd);
}

std::string_view withoutLineEnd(std::string_view line) {
    if (line.ends_with(csvLineEnd)) line.remove_suffix(csvLineEnd.size());
    return line;
}

bool isMissingAnswerLine(std::string_view lineWithoutEnd) { return lineWithoutEnd.ends_with(missingAnswerMark); }

std::optional<ReadingFields> readReadingLine(std::string_view line) {
    // The time stamp, then the six numbers; the item takes the rest.
    std::array<std::string, 7> fields;
    for (auto& field : fields) {
        auto end = line.find(separator);
        if (end == std::string_view::npos) return std::nullopt;
        field = line.substr(0, end);
        line.remove_prefix(end + 1);
    }
    std::array<double, 6> numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        auto value = number(fields[i + 1]);
        if (!value) return std::nullopt;
        numbers[i] = *value;
    }
    return ReadingFields{
        fields[0], {numbers[0], numbers[1], numbers[2], numbers[3]}, numbers[4], numbers[5], std::string(line)};
}

bool belowMinimum(const TecSample& sample) {
    for (float sensor : sample.sensors) {
        if (minimumTemperature > static_cast<double>(sensor)) return true;
    }
    return false;
}

bool sensorsDisagree(const TecSample& sample) {
    const auto apart = [](float a, float b) { return std::fabs(a - b) > sensorAgreementBand; };
    const float* s = sample.sensors;
    return apart(s[0], s[1]) || apart(s[0], s[2]) || apart(s[1], s[2]);
}

}  // namespace kelvane::tec
