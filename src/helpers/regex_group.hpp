// Picking one group out of the first match of a pattern, as the TEC replies and the fixture
// identifier are read.
#pragma once

#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>

#include <cstdint>
#include <string>

namespace kelvane {

// The text of group `groupId` of the first match of `pattern` (ICU syntax, case-insensitive,
// "^" and "$" matching at line breaks) in `text`. Nil when there is no match or the group took
// no part; a pattern that does not compile, and the empty pattern, give nil and an error in the
// slot. Throws std::out_of_range when a match has fewer groups than `groupId`.
Value findSubStringByRegexGroup(const std::string& text, const std::string& pattern, std::int32_t groupId,
                                RpcErrorSlot error);

}  // namespace kelvane
