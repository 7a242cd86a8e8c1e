#include "tec_reading.hpp"

#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvanectl {
namespace {

using json = Result;

constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view missingMark = " get null value.";
// timestamp, four sensors, PWM, current; the item name takes the rest, commas and all.
constexpr std::size_t fieldsBeforeItem = 7;

std::string_view withoutLineEnd(std::string_view line) {
    if (line.size() >= lineEnd.size() && line.substr(line.size() - lineEnd.size()) == lineEnd)
        line.remove_suffix(lineEnd.size());
    return line;
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::optional<double> number(const std::string& field) {
    if (field.empty()) return std::nullopt;
    char* end = nullptr;
    double value = std::strtod(field.c_str(), &end);
    if (*end != '\0') return std::nullopt;
    return value;
}

std::optional<json> fields(std::string_view line) {
    std::vector<std::string> parts;
    while (parts.size() < fieldsBeforeItem) {
        auto comma = line.find(',');
        if (comma == std::string_view::npos) return std::nullopt;
        parts.emplace_back(line.substr(0, comma));
        line.remove_prefix(comma + 1);
    }
    json values = json::array();
    for (std::size_t i = 1; i < fieldsBeforeItem; ++i) {
        auto value = number(parts[i]);
        if (!value) return std::nullopt;
        values.push_back(*value);
    }
    return json{{"timestamp", parts[0]},
                {"sensors", {values[0], values[1], values[2], values[3]}},
                {"pwm", values[4]},
                {"current", values[5]},
                {"item", std::string(line)}};
}

}  // namespace

Outcome tecReading(const char* text) {
    if (!text) return failed(nullptr, "the fixture controller gave no reply");
    std::string_view line = withoutLineEnd(text);
    if (endsWith(line, missingMark)) {
        return failed(json{{"missing", true}, {"line", line}},
                      "an answer of the TEC controller was missing or empty: " +
                          std::string(line));
    }
    auto reading = fields(line);
    if (!reading) return failed(line, "not a TEC reading: " + std::string(line));
    Outcome outcome = succeeded(std::move(*reading));
    outcome.plain = line;
    return outcome;
}

}  // namespace kelvanectl
