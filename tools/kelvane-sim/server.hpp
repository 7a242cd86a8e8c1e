// The simulator's server loop: one ROUTER socket, so it answers any number of DEALER or REQ
// clients and can hold one reply back without keeping the others waiting.
#pragma once

#include "control_surface.hpp"
#include "delayed_sends.hpp"
#include "journal.hpp"
#include "scripts.hpp"
#include "simulated_fixture.hpp"

#include <zmq.hpp>

#include <functional>
#include <string>
#include <string_view>

namespace kelvane::sim {

class Server {
public:
    Server(SimulatedFixture& fixture, bool quiet);

    // Binds and gives the endpoint bound, with the port the system chose for "*" or 0.
    // Throws zmq::error_t when the endpoint cannot be bound.
    std::string bind(const std::string& endpoint);
    // Serves until `stopRequested` says so; it is checked at least every 100 ms.
    void run(const std::function<bool()>& stopRequested);

private:
    void receiveAll();
    void handle(const Frames& envelope, std::string_view text);
    void serveControllerRequest(const Frames& envelope, const jsonrpc::Request& request);
    Outcome modelAnswer(const jsonrpc::Request& request);
    void reply(const Frames& envelope, std::string message);
    void send(const Frames& frames);
    void sendDue();
    void log(const std::string& line) const;

    SimulatedFixture& fixture_;
    const bool quiet_;
    ScriptBook scripts_;
    Journal journal_;
    ControlSurface control_{fixture_, scripts_, journal_};
    DelayedSends delayed_;

    zmq::context_t context_{1};
    zmq::socket_t router_{context_, zmq::socket_type::router};
};

}  // namespace kelvane::sim
