#include "platform/file_append.hpp"

#include <fstream>

namespace kelvane {

bool isAscii(std::string_view text) {
    for (unsigned char c : text) {
        if (c > 0x7f) return false;
    }
    return true;
}

bool appendToFile(const std::filesystem::path& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::app);
    if (!file) return false;
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return true;
}

}  // namespace kelvane
