// kelvane-sim: stands in for the fixture controller board, or with --fixtures for the boards of
// a whole station. Prints one line "listening on <endpoint>" per fixture, in order, once all are
// bound (then with --http one line "panel at <url>"), and serves until SIGINT or SIGTERM (or,
// replaying with --replay-exit, until the trace is used up); a replay prints its report on
// standard output at the end. The simulator itself is the kelvane_sim library (simulator.hpp).
#include "options.hpp"
#include "simulator.hpp"

#include <guarded_main.hpp>

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <iostream>

namespace {

volatile std::sig_atomic_t stopSignalled = 0;
// Set while the simulator runs, so a signal ends its wait at once.
std::atomic<const kelvane::sim::Simulator*> simulatorToWake{nullptr};

void requestStop(int) {
    stopSignalled = 1;
    if (const auto* simulator = simulatorToWake.load()) simulator->wake();
}

struct WakeOnSignal {
    explicit WakeOnSignal(const kelvane::sim::Simulator& simulator) { simulatorToWake = &simulator; }
    ~WakeOnSignal() { simulatorToWake = nullptr; }
};

void installSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

// Each fixture holds a few descriptors, and a station's clients one more each: more than macOS's
// default limit of 256 for a large station, so the simulator takes what the hard limit allows.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    rlim_t wanted = limit.rlim_max;
#ifdef OPEN_MAX
    wanted = std::min<rlim_t>(wanted, OPEN_MAX);  // macOS refuses more, even under an unlimited hard limit
#endif
    if (wanted <= limit.rlim_cur) return;
    limit.rlim_cur = wanted;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
    using namespace kelvane::sim;
    try {
        int exitCode = 0;
        auto options = parseOptions(argc, argv, exitCode);
        if (!options) return exitCode;
        installSignalHandlers();
        raiseDescriptorLimit();
        Simulator simulator(*options);
        for (const auto& endpoint : simulator.endpoints()) std::cout << "listening on " << endpoint << '\n';
        if (auto url = simulator.startPanel()) std::cout << "panel at " << *url << '\n';
        std::cout << std::flush;
        WakeOnSignal wakeOnSignal(simulator);
        simulator.run([] { return stopSignalled != 0; });
        if (auto report = simulator.replayReport()) std::cout << *report << std::flush;
    } catch (...) {
        return kelvane::tools::reportFailure("kelvane-sim");
    }
    return 0;
}
