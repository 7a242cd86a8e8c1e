// ConnectionWatcher: whether the client's connection to its controller is up, read from the
// socket's monitor on the process's monitor thread (ConnectionMonitors). It tells the client when
// the connection is lost, and asks it to connect anew when ZeroMQ has ended the session for a
// protocol error (an oversize frame, a peer of the wrong socket type), after which ZeroMQ itself
// never reconnects.
#pragma once

#include "rpc/connection_monitors.hpp"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace kelvane {

class ConnectionWatcher final : private ConnectionMonitors::Listener {
public:
    struct Reactions {
        // The connection dropped: calls in flight will never be answered.
        std::function<void()> lost;
        // Connect the socket anew; false when it could not be done now (it is asked again).
        std::function<bool()> reconnect;
    };

    ConnectionWatcher(ConnectionMonitors& monitors, void* watchedSocket, Reactions reactions);
    ~ConnectionWatcher();
    ConnectionWatcher(const ConnectionWatcher&) = delete;
    ConnectionWatcher& operator=(const ConnectionWatcher&) = delete;

    // Waits until the connection is up (true), until `until`, or until stopWaiting() (false).
    bool waitForConnection(std::chrono::steady_clock::time_point until);
    bool isConnected() const;
    // Makes waits under way and later ones return at once.
    void stopWaiting();
    // Stops watching: no reaction runs once this has returned. The state stays as last seen.
    void stop();

private:
    std::optional<ConnectionMonitors::Deadline> onEvent(std::uint16_t event) override;
    std::optional<ConnectionMonitors::Deadline> onDue() override;

    ConnectionMonitors& monitors_;
    const Reactions reactions_;

    mutable std::mutex mutex_;  // guards the two below
    std::condition_variable changed_;
    bool connected_ = false;
    bool stoppedWaiting_ = false;
};

}  // namespace kelvane
