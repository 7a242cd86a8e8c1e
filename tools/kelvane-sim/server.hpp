// The simulator's serving loop: one thread polls the sockets of every simulated fixture, sends
// each fixture's held-back replies when they are due, and runs the work other threads post.
#pragma once

#include "fixture_server.hpp"
#include "task_queue.hpp"

#include <zmq.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvane::sim {

class Server {
public:
    // Each fixture's journal holds at most `journalLimitBytes`.
    Server(bool quiet, std::size_t journalLimitBytes) : quiet_(quiet), journalLimitBytes_(journalLimitBytes) {}

    // Before run(): adds a fixture listening at `endpoint`, its log lines starting with
    // `logLabel`. Throws std::runtime_error naming the endpoint when it cannot be bound.
    FixtureServer& addFixture(const std::string& endpoint, SimulatedFixture fixture, std::string logLabel,
                              std::optional<ReplaySettings> replay = {});

    // Serves until `stopRequested` says so. It is checked after every request, due reply and
    // wake(), and when nothing happens at least every `checkEvery`.
    void run(const std::function<bool()>& stopRequested,
             std::chrono::milliseconds checkEvery = std::chrono::seconds(1));
    // Any thread, signal handlers included: run() checks `stopRequested` at once.
    void wake() const noexcept { tasks_.wake(); }

    // The serving thread's own view (or any thread's before run()): fixture 1 is the first added.
    int fixtureCount() const { return static_cast<int>(fixtures_.size()); }
    FixtureServer& fixture(int number) { return *fixtures_.at(static_cast<std::size_t>(number - 1)); }
    bool holdsRepliesBack() const;

    // Serving thread: told after fixture k served requests or was noted changed, and again at
    // the time it answers (a move's end, say); nothing to look at again, no answer. Unset, as
    // without a panel, nothing is watched.
    using StateWatch = std::function<std::optional<FixtureServer::Clock::time_point>(int fixture)>;
    void watchStates(StateWatch watch);
    // Serving thread: fixture k may have changed outside a request (posted work).
    void noteChange(int fixture);

    // Any thread: runs `work` on the serving thread at its next turn. Work still queued when the
    // server is destroyed is dropped unrun.
    void onServingThread(std::function<void()> work) { tasks_.post(std::move(work)); }

private:
    // The next held-back reply; nextWake adds the next look at a watched fixture.
    std::optional<FixtureServer::Clock::time_point> nextDue() const;
    std::optional<FixtureServer::Clock::time_point> nextWake() const;
    void lookAgainDue(FixtureServer::Clock::time_point now);

    const bool quiet_;
    const std::size_t journalLimitBytes_;
    zmq::context_t context_{1};  // outlives the fixtures' sockets
    std::vector<std::unique_ptr<FixtureServer>> fixtures_;
    TaskQueue tasks_;
    StateWatch watch_;
    std::vector<std::optional<FixtureServer::Clock::time_point>> lookAgain_;  // per fixture
};

}  // namespace kelvane::sim
