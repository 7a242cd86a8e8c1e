#include "embedded_files.hpp"

namespace kelvane::web {

std::string_view contentTypeOf(std::string_view name) {
    if (name.ends_with(".html")) return "text/html; charset=utf-8";
    if (name.ends_with(".css")) return "text/css; charset=utf-8";
    if (name.ends_with(".js")) return "text/javascript; charset=utf-8";
    if (name.ends_with(".svg")) return "image/svg+xml";
    return "application/octet-stream";
}

}  // namespace kelvane::web
