// One simulated fixture at its own address: its responder and its held-back replies behind one
// ROUTER socket, so it answers any number of DEALER or REQ clients and can hold one reply back
// without keeping the others waiting. The Server polls it; everything here runs on the serving
// thread.
#pragma once

#include "delayed_sends.hpp"
#include "fixture_responder.hpp"

#include <zmq.hpp>

#include <optional>
#include <string>

namespace kelvane::sim {

class FixtureServer {
public:
    using Clock = DelayedSends::Clock;

    // Binds `endpoint` on `context`; port "*" or 0 takes a free port. Log lines start with
    // `logLabel`; the journal holds at most `journalLimitBytes`. Throws zmq::error_t when the
    // endpoint cannot be bound.
    FixtureServer(zmq::context_t& context, const std::string& endpoint, SimulatedFixture fixture, std::string logLabel,
                  bool quiet, std::size_t journalLimitBytes, std::optional<ReplaySettings> replay = {});

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

    FixtureResponder& responder() { return responder_; }

private:
    void send(const Frames& frames);
    void log(const std::string& line) const;

    const FixtureResponder::Log log_;
    FixtureResponder responder_;
    DelayedSends delayed_;

    zmq::socket_t router_;
    std::string endpoint_;
};

}  // namespace kelvane::sim
