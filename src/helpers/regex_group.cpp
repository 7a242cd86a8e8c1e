#include "helpers/regex_group.hpp"

#include <unicode/regex.h>

#include <memory>

namespace kelvane {

Value findSubStringByRegexGroup(const std::string& text, const std::string& pattern,
                                std::int32_t groupId, RpcErrorSlot error) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(
        icu::UnicodeString::fromUTF8(pattern), UREGEX_CASE_INSENSITIVE | UREGEX_MULTILINE,
        status));
    if (U_FAILURE(status)) {
        if (error) *error = RpcError{status, std::string("invalid pattern: ") + u_errorName(status)};
        return nullptr;
    }
    auto subject = icu::UnicodeString::fromUTF8(text);
    std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(subject, status));
    if (U_FAILURE(status) || !matcher->find(status) || groupId < 0 ||
        groupId > matcher->groupCount() || matcher->start(groupId, status) < 0) {
        return nullptr;
    }
    std::string group;
    matcher->group(groupId, status).toUTF8String(group);
    return U_FAILURE(status) ? Value() : Value(group);
}

}  // namespace kelvane
