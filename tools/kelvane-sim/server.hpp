// The simulator's server loop: one ROUTER socket, so it answers any number of DEALER or REQ
// clients and can hold one reply back without keeping the others waiting.
#pragma once

#include "control_surface.hpp"
#include "delayed_sends.hpp"
#include "journal.hpp"
#include "replay_book.hpp"
#include "scripts.hpp"
#include "simulated_fixture.hpp"

#include <zmq.hpp>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

namespace kelvane::sim {

// How a server answers from a recorded trace (kelvane-sim --replay).
struct ReplaySettings {
    ReplayBook book;
    bool recordedTiming = false;  // wait each exchange's recorded duration before answering
    bool strict = false;          // a request with no match is an error rather than a model answer
};

class Server {
public:
    Server(SimulatedFixture& fixture, bool quiet, std::optional<ReplaySettings> replay = {});

    // Binds and gives the endpoint bound, with the port the system chose for "*" or 0.
    // Throws zmq::error_t when the endpoint cannot be bound.
    std::string bind(const std::string& endpoint);
    // Serves until `stopRequested` says so; it is checked at least every 100 ms.
    void run(const std::function<bool()>& stopRequested);

    bool holdsRepliesBack() const { return delayed_.nextDue().has_value(); }
    // Null when the server does not replay.
    const ReplayBook* replayBook() const { return replay_ ? &replay_->book : nullptr; }

private:
    void receiveAll();
    void handle(const Frames& envelope, std::string_view text);
    void serveControllerRequest(const Frames& envelope, const jsonrpc::Request& request);
    Outcome modelAnswer(const jsonrpc::Request& request);
    // True when the replay answered (or silenced) the request.
    bool replayAnswer(const Frames& envelope, const jsonrpc::Request& request);
    // Sends the reply now, or holds it back for `delay` without keeping other clients waiting.
    void reply(const Frames& envelope, std::string message,
               std::chrono::milliseconds delay = std::chrono::milliseconds{0});
    void send(const Frames& frames);
    void sendDue();
    void log(const std::string& line) const;

    SimulatedFixture& fixture_;
    const bool quiet_;
    std::optional<ReplaySettings> replay_;
    ScriptBook scripts_;
    Journal journal_;
    ControlSurface control_{fixture_, scripts_, journal_};
    DelayedSends delayed_;

    zmq::context_t context_{1};
    zmq::socket_t router_{context_, zmq::socket_type::router};
};

}  // namespace kelvane::sim
