#include "c_api/returned_text.hpp"

namespace kelvane {

const char* returnedText(std::string text) {
    thread_local std::string kept;
    kept = std::move(text);
    return kept.c_str();
}

const char* returnedText(const Value& reply) {
    if (reply.is_null()) return nullptr;
    return returnedText(describe(reply));
}

}  // namespace kelvane
