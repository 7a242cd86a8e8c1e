// A write to a pipe whose reader has gone raises SIGPIPE, whose default action ends the process:
// a host whose standard error was closed would die at the library's first log line. While a
// guard lives, such a write by the guarding thread only fails (EPIPE) and no signal reaches
// the host.
#pragma once

#include <signal.h>

namespace kelvane {

class PipeSignalGuard {
public:
    // Holds SIGPIPE off the calling thread.
    PipeSignalGuard();
    // Takes a SIGPIPE that the guarded writes left pending (one pending before is left alone)
    // and restores the thread's signal mask.
    ~PipeSignalGuard();

    PipeSignalGuard(const PipeSignalGuard&) = delete;
    PipeSignalGuard& operator=(const PipeSignalGuard&) = delete;

private:
    sigset_t previousMask_;
    bool pendingBefore_;
};

}  // namespace kelvane
