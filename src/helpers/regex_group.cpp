#include "helpers/regex_group.hpp"

#include <unicode/regex.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace kelvane {

Value findSubStringByRegexGroup(const std::string& text, const std::string& pattern, std::int32_t groupId,
                                RpcErrorSlot error) {
    UErrorCode status = U_ZERO_ERROR;
    // The empty pattern is no pattern; ICU would compile it and match the empty text.
    std::unique_ptr<icu::RegexPattern> compiled;
    if (pattern.empty()) {
        status = U_ILLEGAL_ARGUMENT_ERROR;
    } else {
        compiled.reset(icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(pattern),
                                                  UREGEX_CASE_INSENSITIVE | UREGEX_MULTILINE, status));
    }
    if (U_FAILURE(status)) {
        if (error) *error = RpcError{status, std::string("invalid pattern: ") + u_errorName(status)};
        return nullptr;
    }
    auto subject = icu::UnicodeString::fromUTF8(text);
    std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(subject, status));
    if (U_FAILURE(status) || !matcher->find(status)) return nullptr;
    // The index is the caller's to get right, as with the hex helpers' lengths.
    if (groupId < 0 || groupId > matcher->groupCount()) {
        throw std::out_of_range("findSubStringByRegexGroup: group " + std::to_string(groupId) + " of a pattern with " +
                                std::to_string(matcher->groupCount()));
    }
    if (matcher->start(groupId, status) < 0) return nullptr;
    std::string group;
    matcher->group(groupId, status).toUTF8String(group);
    return U_FAILURE(status) ? Value() : Value(group);
}

}  // namespace kelvane
