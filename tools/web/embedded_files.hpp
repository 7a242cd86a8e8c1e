// A page's files built into the binary (embed_files.cmake writes their bytes), so a tool has
// nothing to install beside it and its page nothing to fetch from elsewhere.
#pragma once

#include <string_view>

namespace kelvane::web {

struct EmbeddedFile {
    std::string_view name;  // "index.html", "panel.css", ...
    std::string_view bytes;
};

// The Content-Type a file is served with, from its extension.
std::string_view contentTypeOf(std::string_view name);

}  // namespace kelvane::web
