#include "c_api/returned_text.hpp"

#include <string_view>

namespace kelvane {
namespace {

// U+FFFD REPLACEMENT CHARACTER in UTF-8.
constexpr std::string_view nulStandIn = "\xEF\xBF\xBD";

// A C string ends at its first zero byte, but the library judged the whole reply ("done"
// anywhere in it, say); so the host gets the whole text, each zero byte shown as U+FFFD.
std::string withoutZeroBytes(std::string text) {
    for (auto at = text.find('\0'); at != std::string::npos; at = text.find('\0', at)) {
        text.replace(at, 1, nulStandIn);
        at += nulStandIn.size();
    }
    return text;
}

}  // namespace

const char* returnedText(std::string text) {
    thread_local std::string kept;
    kept = withoutZeroBytes(std::move(text));
    return kept.c_str();
}

const char* returnedText(const Value& reply) {
    if (reply.is_null()) return nullptr;
    return returnedText(describe(reply));
}

}  // namespace kelvane
