// kelvane-sim: stands in for the fixture controller board. Prints one line,
// "listening on <endpoint>", once it is bound, and serves until SIGINT or SIGTERM (or, replaying
// with --replay-exit, until the trace is used up); a replay prints its report on standard output
// at the end.
#include "models.hpp"
#include "options.hpp"
#include "server.hpp"
#include "simulated_fixture.hpp"

#include <chrono>
#include <csignal>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <variant>

namespace {

volatile std::sig_atomic_t stopSignalled = 0;

constexpr std::chrono::milliseconds replayExitGrace{300};

void requestStop(int) { stopSignalled = 1; }

void installSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
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
    int exitCode = 0;
    auto options = parseOptions(argc, argv, exitCode);
    if (!options) return exitCode;
    installSignalHandlers();
    try {
        auto replay = replaySettings(*options);
        SimulatedFixture fixture(makeModels(options->world));
        Server server(fixture, options->quiet, std::move(replay));
        std::string endpoint = server.bind(options->bind);
        std::cout << "listening on " << endpoint << std::endl;
        const ReplayBook* book = server.replayBook();
        std::optional<std::chrono::steady_clock::time_point> usedUp;
        // The last reply gets a moment to be read before the connection goes: a client fails
        // the calls in flight when its controller disconnects.
        auto replayDone = [&] {
            if (!options->replayExit || !book->allUsed() || server.holdsRepliesBack()) return false;
            auto now = std::chrono::steady_clock::now();
            if (!usedUp) usedUp = now;
            return now - *usedUp >= replayExitGrace;
        };
        server.run([&] { return stopSignalled != 0 || replayDone(); });
        if (book) std::cout << book->reportText() << std::flush;
    } catch (const std::exception& error) {
        std::cerr << "kelvane-sim: " << error.what() << " (" << options->bind << ")\n";
        return 1;
    }
    return 0;
}
