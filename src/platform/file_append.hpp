// Appending lines to the station's text files.
#pragma once

#include <kelvane/Platform.hpp>

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace kelvane {

// True when every byte of the text is 7-bit ASCII; such texts are the only ones the station
// files take.
bool isAscii(std::string_view text);

enum class AppendResult {
    appended,
    notOpened,  // no file to open: its folder is missing, a folder stands in its place, or no
                // permission
    failed,     // the file was open, but the write or the close failed (full disk, I/O error)
};

// Creates the file when it is missing (never its folder), appends the bytes at its end and
// closes it.
AppendResult appendToFile(const std::filesystem::path& path, std::string_view bytes);

// Appends a line to one of the station's fixed files (below the platform's file root), as the
// station's own tools do: a file that cannot be opened loses the line without a word; a line
// that is not all ASCII is not written, though the file is created; a write or close that
// fails once the file is open loses the line and logs `failureLine`. Nothing reaches the caller.
void appendStationLine(const Platform& platform, std::string_view stationPath, std::string_view line,
                       std::string_view failureLine);

// A file kept open for appending, for writers that add many lines: each write() goes to the
// end of the file in one system call, so lines from several writers (even other processes)
// never interleave within a line.
class AppendingFile {
public:
    // Opens (creating) the file; isOpen() tells whether that worked.
    explicit AppendingFile(const std::filesystem::path& path);
    ~AppendingFile();
    AppendingFile(const AppendingFile&) = delete;
    AppendingFile& operator=(const AppendingFile&) = delete;

    bool isOpen() const { return fd_ >= 0; }
    // The file's size when it was opened.
    std::uint64_t sizeAtOpen() const { return sizeAtOpen_; }
    // False when not all bytes were written.
    bool write(std::string_view bytes);
    // False when closing reports an error: bytes written before may not have reached the disk.
    bool close();

private:
    int fd_ = -1;
    std::uint64_t sizeAtOpen_ = 0;
};

// Renames `from` to `to`, replacing `to`. False when it cannot.
bool replaceFile(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace kelvane
