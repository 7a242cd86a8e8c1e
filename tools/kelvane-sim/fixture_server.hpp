// One simulated fixture at its own address: its models, scripts, journal and delayed replies
// behind one ROUTER socket, so it answers any number of DEALER or REQ clients and can hold one
// reply back without keeping the others waiting. The Server polls it; everything here runs on the
// serving thread.
#pragma once

#include "control_surface.hpp"
#include "delayed_sends.hpp"
#include "journal.hpp"
#include "replay_book.hpp"
#include "scripts.hpp"
#include "simulated_fixture.hpp"

#include <zmq.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane::sim {

// How a fixture answers from a recorded trace (kelvane-sim --replay).
struct ReplaySettings {
    ReplayBook book;
    bool recordedTiming = false;  // wait each exchange's recorded duration before answering
    bool strict = false;          // a request with no match is an error rather than a model answer
};

class FixtureServer {
public:
    using Clock = DelayedSends::Clock;

    // Binds `endpoint` on `context`; port "*" or 0 takes a free port. Log lines start with
    // `logLabel`; the journal holds at most `journalLimitBytes`. Throws zmq::error_t when the
    // endpoint cannot be bound.
    FixtureServer(zmq::context_t& context, const std::string& endpoint, SimulatedFixture fixture,
                  std::string logLabel, bool quiet, std::size_t journalLimitBytes,
                  std::optional<ReplaySettings> replay = {});

    FixtureServer(const FixtureServer&) = delete;
    FixtureServer& operator=(const FixtureServer&) = delete;

    // The endpoint bound, with the port the system chose for "*" or 0.
    const std::string& endpoint() const { return endpoint_; }
    zmq::socket_ref socket() { return router_; }

    // Serves every request waiting on the socket.
    void receiveAll();
    // Sends the held-back replies due by `now`; `nextDue` says when the next one is.
    void sendDue(Clock::time_point now);
    std::optional<Clock::time_point> nextDue() const { return delayed_.nextDue(); }

    // A "sim." control call, answered as if it had come over the wire.
    Outcome control(const jsonrpc::Request& request);
    const Journal& journal() const { return journal_; }
    // Null when the fixture does not replay.
    const ReplayBook* replayBook() const { return replay_ ? &replay_->book : nullptr; }

private:
    void handle(const Frames& envelope, std::string_view text);
    void serveControllerRequest(const Frames& envelope, const jsonrpc::Request& request);
    Outcome modelAnswer(const jsonrpc::Request& request);
    // True when the replay answered (or silenced) the request.
    bool replayAnswer(const Frames& envelope, const jsonrpc::Request& request);
    // Sends the reply now, or holds it back for `delay` without keeping other clients waiting.
    void reply(const Frames& envelope, std::string message,
               std::chrono::milliseconds delay = std::chrono::milliseconds{0});
    void send(const Frames& frames);
    void log(const std::string& line) const;

    SimulatedFixture fixture_;
    const std::string logLabel_;
    const bool quiet_;
    std::optional<ReplaySettings> replay_;
    ScriptBook scripts_;
    Journal journal_;
    ControlSurface control_{fixture_, scripts_, journal_};
    DelayedSends delayed_;

    zmq::socket_t router_;
    std::string endpoint_;
};

}  // namespace kelvane::sim
