// Texts handed to C callers: the library keeps each one alive in the calling thread until that
// thread's next text result, so callers never free them and threads never share them.
#pragma once

#include <kelvane/Value.hpp>

#include <string>

namespace kelvane {

// The text kept for the calling thread, replacing the one kept before.
const char* returnedText(std::string text);

// A reply as a C text: a text as it is, nil as NULL, any other value as its printed form.
const char* returnedText(const Value& reply);

}  // namespace kelvane
