// What this process (or a child) holds right now: resident memory, threads, open descriptors.
// Read from /proc where the system has it; nothing (std::nullopt) elsewhere, so callers can skip
// visibly.
#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include <unistd.h>

namespace kelvane::testing {

// Whether resident size tells what the code holds: under ThreadSanitizer it also counts the
// sanitizer's shadow of every page touched, several times the memory itself.
inline constexpr bool residentSizeIsMeaningful = !KELVANE_TEST_UNDER_TSAN;

// Whether this build's processes (the tools are built alike) run as a station's do: no sanitizer
// that reserves terabytes of address space for its shadow memory, keeps 256 MiB of freed memory
// in quarantine (AddressSanitizer), or makes a request cost several times as much.
inline constexpr bool builtWithoutSanitizers = residentSizeIsMeaningful && !KELVANE_TEST_UNDER_ASAN;

// Of this process, or of the process `pid`.
inline std::optional<std::size_t> residentBytes(const std::string& pid = "self") {
    std::ifstream statm("/proc/" + pid + "/statm");
    std::size_t totalPages = 0, residentPages = 0;
    if (!(statm >> totalPages >> residentPages)) return std::nullopt;
    return residentPages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

inline std::optional<std::size_t> entriesIn(const char* directory) {
    std::error_code error;
    std::filesystem::directory_iterator entries(directory, error);
    return error ? std::nullopt : std::optional<std::size_t>(std::distance(entries, {}));
}

inline std::optional<std::size_t> threadCount() { return entriesIn("/proc/self/task"); }
inline std::optional<std::size_t> descriptorCount() { return entriesIn("/proc/self/fd"); }

}  // namespace kelvane::testing
