// kelvane-sim: stands in for the fixture controller board, or with --fixtures for the boards of
// a whole station. Prints one line "listening on <endpoint>" per fixture, in order, once all are
// bound (then with --http one line "panel at <url>"), and serves until SIGINT or SIGTERM (or, replaying with --replay-exit, until the trace is
// used up); a replay prints its report on standard output at the end.
#include "models.hpp"
#include "options.hpp"
#if KELVANE_SIM_PANEL
#include "panel_server.hpp"
#endif
#include "server.hpp"
#include "simulated_fixture.hpp"

#include <guarded_main.hpp>

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <utility>
#include <variant>

namespace {

volatile std::sig_atomic_t stopSignalled = 0;
// Set while the server runs, so a signal ends its wait at once.
std::atomic<const kelvane::sim::Server*> serverToWake{nullptr};

constexpr std::chrono::milliseconds replayExitGrace{300};
// How soon the replay's end is noticed once its grace has passed.
constexpr std::chrono::milliseconds replayExitCheck{100};

void requestStop(int) {
    stopSignalled = 1;
    if (const auto* server = serverToWake.load()) server->wake();
}

struct WakeOnSignal {
    explicit WakeOnSignal(const kelvane::sim::Server& server) { serverToWake = &server; }
    ~WakeOnSignal() { serverToWake = nullptr; }
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

std::optional<kelvane::sim::ReplaySettings> replaySettings(const kelvane::sim::Options& options) {
    using namespace kelvane::sim;
    if (options.replayFile.empty()) return std::nullopt;
    auto book = ReplayBook::load(options.replayFile);
    if (auto* problem = std::get_if<std::string>(&book)) throw std::runtime_error(*problem);
    return ReplaySettings{std::move(std::get<ReplayBook>(book)), options.replayRecordedTiming,
                          options.replayStrict};
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
        const auto& endpoints = options->endpoints;
        auto replay = replaySettings(*options);  // before anything is bound
        Server server(options->quiet, options->journalLimitBytes);
        for (std::size_t k = 1; k <= endpoints.size(); ++k) {
            WorldSettings world = options->world;
            world.seed += static_cast<std::uint32_t>(k - 1);
            std::string label = endpoints.size() > 1 ? "fixture " + std::to_string(k) + ": " : "";
            server.addFixture(endpoints[k - 1], SimulatedFixture(makeModels(world)), std::move(label),
                              std::exchange(replay, std::nullopt));
        }
        for (int k = 1; k <= server.fixtureCount(); ++k) {
            std::cout << "listening on " << server.fixture(k).endpoint() << '\n';
        }
#if KELVANE_SIM_PANEL
        std::optional<PanelServer> panel;
        if (options->http) {
            panel.emplace(server, options->http->address, options->http->port);
            std::cout << "panel at " << panel->url() << '\n';
        }
#else
        if (options->http) throw std::runtime_error("this build has no panel (--http)");
#endif
        std::cout << std::flush;
        const ReplayBook* book = server.fixture(1).replayBook();
        std::optional<std::chrono::steady_clock::time_point> usedUp;
        // The last reply gets a moment to be read before the connection goes: a client fails
        // the calls in flight when its controller disconnects.
        auto replayDone = [&] {
            if (!options->replayExit || !book->allUsed() || server.holdsRepliesBack()) return false;
            auto now = std::chrono::steady_clock::now();
            if (!usedUp) usedUp = now;
            return now - *usedUp >= replayExitGrace;
        };
        WakeOnSignal wakeOnSignal(server);
        server.run([&] { return stopSignalled != 0 || replayDone(); },
                   options->replayExit ? replayExitCheck : std::chrono::seconds(1));
        if (book) std::cout << book->reportText() << std::flush;
    } catch (...) {
        return kelvane::tools::reportFailure("kelvane-sim");
    }
    return 0;
}
