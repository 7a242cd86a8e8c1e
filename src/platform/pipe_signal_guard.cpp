#include "platform/pipe_signal_guard.hpp"

#include <cerrno>
#include <ctime>
#include <pthread.h>

namespace kelvane {
namespace {

sigset_t pipeSignalOnly() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

bool pipeSignalPending() {
    sigset_t pending;
    sigemptyset(&pending);
    return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

void takePendingPipeSignal() {
    sigset_t set = pipeSignalOnly();
#if defined(__APPLE__)
    // No sigtimedwait here. The signal of a failed write is sent to the writing thread, which
    // has it blocked, so it is still pending and sigwait returns at once.
    int taken = 0;
    sigwait(&set, &taken);
#else
    const timespec noWait{};
    while (sigtimedwait(&set, nullptr, &noWait) == -1 && errno == EINTR) {
    }
#endif
}

}  // namespace

PipeSignalGuard::PipeSignalGuard() : pendingBefore_(pipeSignalPending()) {
    sigset_t set = pipeSignalOnly();
    pthread_sigmask(SIG_BLOCK, &set, &previousMask_);
}

PipeSignalGuard::~PipeSignalGuard() {
    if (!pendingBefore_ && pipeSignalPending()) takePendingPipeSignal();
    pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
}

}  // namespace kelvane
