#include "rpc/connection_watcher.hpp"

#include <zmq.h>

namespace kelvane {
namespace {

using SteadyClock = std::chrono::steady_clock;

// After a drop, ZeroMQ announces its next connect attempt at once; when none comes within this,
// it has ended the session for a protocol error and will never reconnect by itself.
constexpr std::chrono::milliseconds retryAnnouncementWait{200};

constexpr int watchedEvents = ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_DISCONNECTED | ZMQ_EVENT_CONNECT_RETRIED;

}  // namespace

ConnectionWatcher::ConnectionWatcher(ConnectionMonitors& monitors, void* watchedSocket, Reactions reactions)
    : monitors_(monitors), reactions_(std::move(reactions)) {
    monitors_.add(watchedSocket, watchedEvents, *this);
}

ConnectionWatcher::~ConnectionWatcher() {
    try {
        stop();
    } catch (...) {
        // Only a failing mutex throws here; a destructor must not.
    }
}

bool ConnectionWatcher::waitForConnection(SteadyClock::time_point until) {
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, until, [this] { return connected_ || stoppedWaiting_; });
    return connected_ && !stoppedWaiting_;
}

bool ConnectionWatcher::isConnected() const {
    std::lock_guard lock(mutex_);
    return connected_;
}

void ConnectionWatcher::stopWaiting() {
    std::lock_guard lock(mutex_);
    stoppedWaiting_ = true;
    changed_.notify_all();
}

void ConnectionWatcher::stop() { monitors_.remove(*this); }

std::optional<ConnectionMonitors::Deadline> ConnectionWatcher::onEvent(std::uint16_t event) {
    if (event == ZMQ_EVENT_CONNECT_RETRIED) return std::nullopt;
    bool nowConnected = event == ZMQ_EVENT_HANDSHAKE_SUCCEEDED;
    {
        std::lock_guard lock(mutex_);
        connected_ = nowConnected;
        changed_.notify_all();
    }
    if (nowConnected) return std::nullopt;
    reactions_.lost();
    return SteadyClock::now() + retryAnnouncementWait;
}

// No connect attempt was announced since the drop: connect anew, or look again later.
std::optional<ConnectionMonitors::Deadline> ConnectionWatcher::onDue() {
    if (reactions_.reconnect()) return std::nullopt;
    return SteadyClock::now() + retryAnnouncementWait;
}

}  // namespace kelvane
