#include "helpers/number_text.hpp"

#include <cctype>

namespace kelvane {
namespace {

bool isDigitAt(std::string_view text, std::size_t i) {
    return i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]));
}

bool isBlankAt(std::string_view text, std::size_t i) {
    return i < text.size() && std::isspace(static_cast<unsigned char>(text[i]));
}

std::size_t skipDigits(std::string_view text, std::size_t i) {
    while (isDigitAt(text, i)) ++i;
    return i;
}

}  // namespace

bool isPureFloatText(std::string_view text) {
    std::size_t i = 0;
    while (isBlankAt(text, i)) ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    std::size_t integerEnd = skipDigits(text, i);
    bool digits = integerEnd > i;
    i = integerEnd;
    if (i < text.size() && text[i] == '.') {
        std::size_t fractionEnd = skipDigits(text, i + 1);
        digits = digits || fractionEnd > i + 1;
        i = fractionEnd;
    }
    if (!digits) return false;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        std::size_t exponent = i + 1;
        if (exponent < text.size() && (text[exponent] == '+' || text[exponent] == '-')) ++exponent;
        if (isDigitAt(text, exponent)) i = skipDigits(text, exponent);
    }
    while (isBlankAt(text, i)) ++i;
    return i == text.size();
}

}  // namespace kelvane
