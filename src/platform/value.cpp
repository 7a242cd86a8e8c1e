#include <kelvane/Value.hpp>

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>

namespace kelvane {
namespace {

std::string describeFloat(double number) {
    if (std::isfinite(number) && number == std::trunc(number) && std::fabs(number) < 1e15) {
        return std::to_string(static_cast<long long>(number));
    }
    return Value(number).dump();
}

long long leadingInteger(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    long long result = 0;
    for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
        int digit = text[i] - '0';
        if (result > (LLONG_MAX - digit) / 10) return negative ? LLONG_MIN : LLONG_MAX;
        result = result * 10 + digit;
    }
    return negative ? -result : result;
}

long long truncatedToInteger(double number) {
    if (std::isnan(number)) return 0;
    if (number >= 9.2e18) return LLONG_MAX;
    if (number <= -9.2e18) return LLONG_MIN;
    return static_cast<long long>(number);
}

}  // namespace

std::string describe(const Value& value) {
    switch (value.type()) {
    case Value::value_t::null: return "(null)";
    case Value::value_t::string: return value.get_ref<const std::string&>();
    case Value::value_t::boolean: return value.get<bool>() ? "1" : "0";
    case Value::value_t::number_float: return describeFloat(value.get<double>());
    default: return value.dump(-1, ' ', false, Value::error_handler_t::replace);
    }
}

long long integerValue(const Value& value) {
    switch (value.type()) {
    case Value::value_t::string: return leadingInteger(value.get_ref<const std::string&>());
    case Value::value_t::boolean: return value.get<bool>() ? 1 : 0;
    case Value::value_t::number_integer: return value.get<long long>();
    case Value::value_t::number_unsigned: {
        auto number = value.get<unsigned long long>();
        return number > LLONG_MAX ? LLONG_MAX : static_cast<long long>(number);
    }
    case Value::value_t::number_float: return truncatedToInteger(value.get<double>());
    default: return 0;
    }
}

bool isNumberOne(const Value& value) {
    if (value.is_boolean()) return value.get<bool>();
    if (value.is_number_float()) return value.get<double>() == 1.0;
    if (value.is_number_integer()) return integerValue(value) == 1;
    return false;
}

bool isText(const Value& value, std::string_view text) {
    return value.is_string() && value.get_ref<const std::string&>() == text;
}

bool describedContains(const Value& value, std::string_view part) {
    return describe(value).find(part) != std::string::npos;
}

std::string upperCased(std::string_view text) {
    auto unicode = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    std::string result;
    unicode.toUpper(icu::Locale::getRoot()).toUTF8String(result);
    return result;
}

}  // namespace kelvane
