// TraceWriter: the one file a trace goes to, shared by every client that traces into it (several
// handles, TEC workers, host threads; traceFile() hands out one writer per path). Lines are
// written whole, in the order they come in; once the file would pass its size limit it is moved
// to "<file>.1" (replacing an older one) and a new file is begun, so a trace never takes more
// than twice the limit.
#pragma once

#include "platform/file_append.hpp"

#include <kelvane/Platform.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

namespace kelvane {

class TraceWriter {
public:
    TraceWriter(std::filesystem::path path, std::uint64_t maxBytes);

    // Appends one line (which ends in a line break). A line that cannot be written is dropped:
    // false then, and the next line tries the file again.
    bool write(std::string_view line);

    // Seconds from the first time stamp given here (on a steady clock) to `monotonic`: the
    // first call asked about is at 0.
    double sinceFirstCall(double monotonic);

    const std::filesystem::path& path() const { return path_; }

private:
    bool openLocked();
    void rotateLocked();

    const std::filesystem::path path_;
    const std::uint64_t maxBytes_;
    std::mutex mutex_;  // guards everything below
    std::unique_ptr<AppendingFile> file_;
    std::uint64_t size_ = 0;
    std::optional<double> firstCall_;
};

// The size limit the host's environment gives traces (KELVANE_TRACE_MAX_MB, in MiB), or the
// default of 64 MiB when it gives none or one that is not a whole number of MiB above 0.
std::uint64_t traceLimitFromEnvironment();

// The trace file the host's environment names (KELVANE_TRACE), with the limit above; null when
// it names none.
std::shared_ptr<TraceWriter> traceFileFromEnvironment();

}  // namespace kelvane
