// ConnectionWatcher: whether the client's connection to its controller is up, read on a thread
// of its own from the socket's monitor. It tells the client when the connection is lost, and
// asks it to connect anew when ZeroMQ has ended the session for a protocol error (an oversize
// frame, a peer of the wrong socket type), after which ZeroMQ itself never reconnects.
#pragma once

#include "rpc/wake_pipe.hpp"

#include <zmq.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace kelvane {

class ConnectionWatcher {
public:
    struct Reactions {
        // The connection dropped: calls in flight will never be answered.
        std::function<void()> lost;
        // Connect the socket anew; false when it could not be done now (it is asked again).
        std::function<bool()> reconnect;
    };

    ConnectionWatcher(zmq::context_t& context, void* watchedSocket, Reactions reactions);
    ~ConnectionWatcher();
    ConnectionWatcher(const ConnectionWatcher&) = delete;
    ConnectionWatcher& operator=(const ConnectionWatcher&) = delete;

    // Waits until the connection is up (true), until `until`, or until stopWaiting() (false).
    bool waitForConnection(std::chrono::steady_clock::time_point until);
    bool isConnected() const;
    // Makes waits under way and later ones return at once.
    void stopWaiting();
    // Ends the thread and detaches the monitor; the state stays as last seen.
    void stop();

private:
    void watch();
    std::optional<std::uint16_t> readEvent();

    void* const watched_;
    const Reactions reactions_;
    zmq::socket_t monitor_;
    WakePipe stop_;
    std::thread thread_;

    mutable std::mutex mutex_;  // guards the two below
    std::condition_variable changed_;
    bool connected_ = false;
    bool stoppedWaiting_ = false;
};

}  // namespace kelvane
