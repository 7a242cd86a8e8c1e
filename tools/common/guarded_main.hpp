// What a tool's main does with whatever escapes its work: one line on standard error and exit
// status 1, never an abort. Each main ends in `catch (...) { return reportFailure(TOOL); }`.
#pragma once

#include <cstdio>
#include <exception>
#include <new>

namespace kelvane::tools {

inline constexpr int exitFailed = 1;

// Only inside a catch block: says what was caught, and returns the exit status.
inline int reportFailure(const char* tool) noexcept {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "%s: out of memory\n", tool);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", tool, error.what());
    } catch (...) {
        std::fprintf(stderr, "%s: stopped by an unexpected failure\n", tool);
    }
    return exitFailed;
}

}  // namespace kelvane::tools
