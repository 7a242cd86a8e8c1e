// kelvane-sim as its command line asks for it: every fixture bound (the replay, if any, answering
// as the first), the panel serving with --http, and the serving loop until told to stop or, with
// --replay-exit, until the trace is used up. Its main adds what belongs to a process alone:
// signals, the limit of open files, and the lines it prints.
#pragma once

#include "options.hpp"
#include "server.hpp"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvane::sim {

class PanelServer;

class Simulator {
public:
    // Binds every fixture. Throws std::runtime_error naming what failed: a replay file that
    // cannot be read, or an endpoint that cannot be bound.
    explicit Simulator(const Options& options);
    ~Simulator();

    // Fixture 1's first, with the ports the system chose.
    std::vector<std::string> endpoints();
    // With --http, before run(): starts the panel and gives its "http://ADDRESS:PORT/"; nothing
    // without. Throws std::runtime_error when the address cannot be bound, or in a build
    // without the panel.
    std::optional<std::string> startPanel();
    // Serves until `stopRequested` says so (checked at least once a second), or with
    // --replay-exit until every recorded exchange was asked for.
    void run(const std::function<bool()>& stopRequested);
    // Any thread, signal handlers included: run() checks `stopRequested` at once.
    void wake() const noexcept { server_.wake(); }
    // With --replay, the replay's report so far as text; nothing without.
    std::optional<std::string> replayReport();

private:
    bool replayUsedUp();

    const std::optional<HttpSettings> http_;
    const bool replayExit_;
    Server server_;
    std::unique_ptr<PanelServer> panel_;  // destroyed first: it posts work to the server
    std::optional<std::chrono::steady_clock::time_point> usedUp_;
};

}  // namespace kelvane::sim
