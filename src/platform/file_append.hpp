// Appending lines to the station's text files.
#pragma once

#include <filesystem>
#include <string_view>

namespace kelvane {

// True when every byte of the text is 7-bit ASCII; such texts are the only ones the station
// files take.
bool isAscii(std::string_view text);

// Creates the file when it is missing (never its folder) and appends the bytes at its end.
// False when the file cannot be opened, e.g. because its folder does not exist.
bool appendToFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace kelvane
