#include "interruption.hpp"

#include "outcome.hpp"

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace kelvanectl {
namespace {

// Only what a signal handler may touch: flags and a pipe whose read end wakes the waiting poll.
volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t exitOnInterrupt = 0;
int wakePipe[2] = {-1, -1};
struct sigaction previous {};

void onInterrupt(int) {
    if (exitOnInterrupt) _exit(exitOk);
    interrupted = 1;
    int savedErrno = errno;
    char byte = 1;
    [[maybe_unused]] auto written = write(wakePipe[1], &byte, 1);
    errno = savedErrno;
}

}  // namespace

Interruption::Interruption() {
    // pipe2 would be one call, but it is not on macOS.
    if (pipe(wakePipe) == 0) fcntl(wakePipe[1], F_SETFL, O_NONBLOCK);
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, &previous);
}

Interruption::~Interruption() {
    sigaction(SIGINT, &previous, nullptr);
    for (int& end : wakePipe) {
        if (end >= 0) close(end);
        end = -1;
    }
}

Interruption::Exiting::Exiting() {
    exitOnInterrupt = 1;
    if (interrupted) _exit(exitOk);
}

Interruption::Exiting::~Exiting() { exitOnInterrupt = 0; }

bool Interruption::waitFor(std::chrono::duration<double> period) {
    using namespace std::chrono;
    auto deadline = steady_clock::now() + duration_cast<steady_clock::duration>(period);
    while (!interrupted) {
        auto left = duration_cast<milliseconds>(deadline - steady_clock::now()).count();
        if (left <= 0) return true;
        pollfd wake{wakePipe[0], POLLIN, 0};
        // Without a pipe, poll just sleeps; the flag is still seen within the period.
        poll(&wake, wakePipe[0] >= 0 ? 1 : 0, static_cast<int>(left));
    }
    return false;
}

}  // namespace kelvanectl
