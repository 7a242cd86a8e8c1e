// DealerLink: the client's DEALER socket to one controller, and nothing else. It sends requests,
// waits for traffic, and reads replies; it does not know which call waits for which reply.
//
// The socket is not thread-safe: only the thread that holds the turn to read (PendingCalls)
// calls send(), waitForTraffic(), receive() and reconnect(). wake() is for any thread.
#pragma once

#include "rpc/wake_pipe.hpp"

#include <kelvane/protocol/json_rpc.hpp>

#include <zmq.hpp>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace kelvane {

class DealerLink {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    // Frames larger than `maxMessageBytes` make ZeroMQ drop the connection.
    DealerLink(zmq::context_t& context, std::string endpoint, std::size_t maxMessageBytes);

    const std::string& endpoint() const { return endpoint_; }
    // For the connection watcher's monitor.
    void* handle() { return socket_.handle(); }

    // Starts connecting in the background.
    void connect();
    // Ends whatever is left of the session and starts a new one.
    void reconnect();
    // False when ZeroMQ cannot take the request now (no connection is up).
    bool send(const std::string& text);
    // Waits until a reply may be there to read (true), or until wake() or the deadline (false).
    bool waitForTraffic(Deadline deadline);
    // One message, if it is a reply of the expected shape; any other frame is dropped here.
    std::optional<jsonrpc::Reply> receive();
    // Ends a waitForTraffic() under way, or the next one.
    void wake() { wake_.signal(); }

private:
    const std::string endpoint_;
    zmq::socket_t socket_;
    WakePipe wake_;
};

}  // namespace kelvane
