// Dynamic values: RPC replies and arguments, the topology, scan results.
#pragma once

#include <kelvane/export.h>
#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace kelvane {

// A reply or argument as the controller sends it. JSON null stands for "no value" (nil):
// a missing reply, a missing dictionary entry. It is distinct from every other value. A plain
// value: one thread at a time may change an object, copies are independent, and the functions
// below may be called from any thread on a value no thread is changing.
using Value = nlohmann::json;

// The value's printed text, as a log line or a result text shows it:
// texts as they are, integers in decimal, floating numbers in their shortest form ("2" for 2.0),
// booleans as 1 and 0, nil as "(null)". Arrays and dictionaries take the old-style property-list
// layout: four spaces of indentation a level, a nested collection adding its own to its parent's,
// dictionary keys in the order of their UTF-16 code units. [7805, -1, null, "in_done"] prints as
//   (
//       7805,
//       "-1",
//       "<null>",
//       "in_done"
//   )
// and {"FixtureIP": {"ip": "10.0.0.20", "port": 7805}} as
//   {
//       FixtureIP =     {
//           ip = "10.0.0.20";
//           port = 7805;
//       };
//   }
// Inside them every element, key and value is its printed text (nil as "<null>"), left bare
// when it is only ASCII letters and digits and quoted otherwise: \ and " escaped, the controls
// 7 to 12 as \a \b \t \n \v \f, each UTF-16 unit from 0x80 on as \Uxxxx, zero characters left out.
KELVANE_API std::string describe(const Value& value);

// The value read as an integer: a number truncated, a boolean 0 or 1, a text by its leading
// decimal digits after optional blanks and sign ("12abc" is 12); nil and anything else give 0.
KELVANE_API long long integerValue(const Value& value);

// True only for a number equal to 1 (1, 1.0 or true). The text "1" is not the number 1.
KELVANE_API bool isNumberOne(const Value& value);

// True only when the value is a text exactly equal to `text`.
KELVANE_API bool isText(const Value& value, std::string_view text);

// True when the value's printed text holds `part` (case-sensitive); nil prints as "(null)".
KELVANE_API bool describedContains(const Value& value, std::string_view part);

// Unicode upper-casing of a UTF-8 text, independent of the user's locale.
KELVANE_API std::string upperCased(std::string_view text);

}  // namespace kelvane
