#include <kelvane/Value.hpp>

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

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

icu::UnicodeString utf16(const std::string& text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

bool isBareWord(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    });
}

void appendEscaped(std::string& out, char16_t unit) {
    constexpr const char* controlEscapes[] = {"\\a", "\\b", "\\t", "\\n", "\\v", "\\f"};
    constexpr const char* hexDigits = "0123456789abcdef";
    if (unit == 0) return;
    if (unit == '\\' || unit == '"') {
        out += '\\';
        out += static_cast<char>(unit);
    } else if (unit >= '\a' && unit <= '\f') {
        out += controlEscapes[unit - '\a'];
    } else if (unit >= 0x80) {
        out += "\\U";
        for (int shift = 12; shift >= 0; shift -= 4) out += hexDigits[(unit >> shift) & 0xf];
    } else {
        out += static_cast<char>(unit);  // other control characters, "\r" among them, stay
    }
}

// A text inside an array or dictionary: bare when it is a word of ASCII letters and digits,
// otherwise quoted, with every UTF-16 unit beyond ASCII written as \Uxxxx (two for an emoji)
// and zero characters left out.
std::string quotedWord(const std::string& text) {
    if (isBareWord(text)) return text;
    const icu::UnicodeString units = utf16(text);
    std::string out = "\"";
    for (int32_t i = 0; i < units.length(); ++i) appendEscaped(out, units.charAt(i));
    out += '"';
    return out;
}

void appendIndent(std::string& out, int level) { out.append(static_cast<std::size_t>(level) * 4, ' '); }

void appendNested(std::string& out, const Value& value, int level);

void appendArray(std::string& out, const Value& array, int level) {
    appendIndent(out, level);
    out += "(\n";
    for (std::size_t i = 0; i < array.size(); ++i) {
        appendIndent(out, level + 1);
        appendNested(out, array[i], level + 1);
        out += i + 1 < array.size() ? ",\n" : "\n";
    }
    appendIndent(out, level);
    out += ')';
}

// Keys come in the order of their UTF-16 code units, so upper case sorts before lower case.
void appendDictionary(std::string& out, const Value& dictionary, int level) {
    std::vector<std::pair<icu::UnicodeString, Value::const_iterator>> entries;
    for (auto entry = dictionary.begin(); entry != dictionary.end(); ++entry) {
        entries.emplace_back(utf16(entry.key()), entry);
    }
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    appendIndent(out, level);
    out += "{\n";
    for (const auto& [unused, entry] : entries) {
        appendIndent(out, level + 1);
        out += quotedWord(entry.key()) + " = ";
        appendNested(out, entry.value(), level + 1);
        out += ";\n";
    }
    appendIndent(out, level);
    out += '}';
}

// A value inside a collection: a nested collection opens with its own indentation; anything
// else is its printed text as a word, where nil stands as "<null>".
void appendNested(std::string& out, const Value& value, int level) {
    if (value.is_array())
        appendArray(out, value, level);
    else if (value.is_object())
        appendDictionary(out, value, level);
    else
        out += quotedWord(value.is_null() ? "<null>" : describe(value));
}

}  // namespace

std::string describe(const Value& value) {
    std::string out;
    switch (value.type()) {
        case Value::value_t::null:
            return "(null)";
        case Value::value_t::string:
            return value.get_ref<const std::string&>();
        case Value::value_t::boolean:
            return value.get<bool>() ? "1" : "0";
        case Value::value_t::number_float:
            return describeFloat(value.get<double>());
        case Value::value_t::array:
            appendArray(out, value, 0);
            return out;
        case Value::value_t::object:
            appendDictionary(out, value, 0);
            return out;
        default:
            return value.dump(-1, ' ', false, Value::error_handler_t::replace);
    }
}

long long integerValue(const Value& value) {
    switch (value.type()) {
        case Value::value_t::string:
            return leadingInteger(value.get_ref<const std::string&>());
        case Value::value_t::boolean:
            return value.get<bool>() ? 1 : 0;
        case Value::value_t::number_integer:
            return value.get<long long>();
        case Value::value_t::number_unsigned: {
            auto number = value.get<unsigned long long>();
            return number > LLONG_MAX ? LLONG_MAX : static_cast<long long>(number);
        }
        case Value::value_t::number_float:
            return truncatedToInteger(value.get<double>());
        default:
            return 0;
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
    auto unicode = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    std::string result;
    unicode.toUpper(icu::Locale::getRoot()).toUTF8String(result);
    return result;
}

}  // namespace kelvane
