// Conversions between texts, hexadecimal texts and bytes, as the CAN frames carry them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvane::hex {

// Two lower-case hexadecimal digits per byte of the text, no separators.
std::string fromText(std::string_view text);

// One number per pair of characters from the start, each character valued c-48 for a digit,
// c-55 for 'A'..'F' and c-87 otherwise (lower-case letters; other characters give wrong values,
// as the TEC code never sends them). Throws std::out_of_range for an odd length, where the last
// pair would read past the end.
std::vector<int> pairValues(std::string_view hex);

// The zeroed buffer of size/2+1 bytes into which each scanned pair is stored; a pair that does not
// scan as hexadecimal repeats the value scanned before it, a trailing odd character is ignored.
// Throws std::out_of_range for the empty text, whose first pair lies outside it.
std::string bufferFromPairs(std::string_view hex);

// The buffer above read as a C text: it ends at its first zero byte.
std::string textFromPairs(std::string_view hex);

}  // namespace kelvane::hex
