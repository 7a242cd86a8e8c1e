// The session's conversion helpers, used by the CAN and TEC code.
#include <kelvane/FixtureControl.hpp>

#include "helpers/hex_text.hpp"
#include "helpers/regex_group.hpp"

namespace kelvane {

std::string FixtureControl::hexStringFromString(const std::string& text) { return hex::fromText(text); }

Value FixtureControl::decimalFromHexString(const std::string& hexText) {
    Value values = hex::pairValues(hexText);
    log("decimalStr: " + describe(values));
    return values;
}

std::string FixtureControl::stringFromHexString(const std::string& hexText) { return hex::textFromPairs(hexText); }

Value FixtureControl::findSubStringByRegexGroup(const std::string& text, const std::string& pattern,
                                                std::int32_t groupId, RpcErrorSlot error) {
    return kelvane::findSubStringByRegexGroup(text, pattern, groupId, error);
}

}  // namespace kelvane
