#include "rpc/connection_watcher.hpp"

#include <zmq_addon.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace kelvane {
namespace {

using SteadyClock = std::chrono::steady_clock;

// After a drop, ZeroMQ announces its next connect attempt at once; when none comes within this,
// it has ended the session for a protocol error and will never reconnect by itself.
constexpr std::chrono::milliseconds retryAnnouncementWait{200};

// Each client has a ZeroMQ context of its own, so one name serves them all.
constexpr const char* monitorEndpoint = "inproc://kelvane-rpc-monitor";

long millisecondsUntil(SteadyClock::time_point deadline) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - SteadyClock::now());
    return std::clamp<long long>(left.count(), 0, 1'000'000);
}

// zmq_poll that treats a signal arriving meanwhile as an early wake-up, not a failure.
void pollFor(zmq_pollitem_t* items, int count, long timeoutMs) {
    if (zmq_poll(items, count, timeoutMs) < 0 && zmq_errno() != EINTR) throw zmq::error_t();
}

}  // namespace

ConnectionWatcher::ConnectionWatcher(zmq::context_t& context, void* watchedSocket,
                                     Reactions reactions)
    : watched_(watchedSocket),
      reactions_(std::move(reactions)),
      monitor_(context, zmq::socket_type::pair) {
    monitor_.set(zmq::sockopt::linger, 0);
    if (zmq_socket_monitor(watched_, monitorEndpoint,
                           ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_DISCONNECTED |
                               ZMQ_EVENT_CONNECT_RETRIED) != 0) {
        throw zmq::error_t();
    }
    monitor_.connect(monitorEndpoint);
    thread_ = std::thread([this] { watch(); });
}

ConnectionWatcher::~ConnectionWatcher() { stop(); }

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

void ConnectionWatcher::stop() {
    if (!thread_.joinable()) return;
    stop_.signal();
    thread_.join();
    zmq_socket_monitor(watched_, nullptr, 0);
}

void ConnectionWatcher::watch() {
    zmq_pollitem_t items[] = {{monitor_.handle(), 0, ZMQ_POLLIN, 0},
                              {nullptr, stop_.readEnd(), ZMQ_POLLIN, 0}};
    std::optional<SteadyClock::time_point> retryDue;
    try {
        while (true) {
            pollFor(items, 2, retryDue ? millisecondsUntil(*retryDue) : -1);
            if (items[1].revents & ZMQ_POLLIN) return;
            if (items[0].revents & ZMQ_POLLIN) {
                auto event = readEvent();
                if (event == ZMQ_EVENT_DISCONNECTED) {
                    retryDue = SteadyClock::now() + retryAnnouncementWait;
                } else if (event) {
                    retryDue.reset();
                }
            } else if (retryDue && SteadyClock::now() >= *retryDue) {
                // When it cannot be done now, look again later.
                retryDue.reset();
                if (!reactions_.reconnect()) retryDue = SteadyClock::now() + retryAnnouncementWait;
            }
        }
    } catch (const zmq::error_t&) {
        // The monitor is gone; the connection state stays as last seen.
    }
}

std::optional<std::uint16_t> ConnectionWatcher::readEvent() {
    std::vector<zmq::message_t> parts;
    if (!zmq::recv_multipart(monitor_, std::back_inserter(parts), zmq::recv_flags::dontwait) ||
        parts.empty() || parts[0].size() < sizeof(std::uint16_t)) {
        return std::nullopt;
    }
    std::uint16_t event = 0;
    std::memcpy(&event, parts[0].data(), sizeof event);
    if (event == ZMQ_EVENT_CONNECT_RETRIED) return event;
    bool nowConnected = event == ZMQ_EVENT_HANDSHAKE_SUCCEEDED;
    {
        std::lock_guard lock(mutex_);
        connected_ = nowConnected;
        changed_.notify_all();
    }
    if (!nowConnected) reactions_.lost();
    return event;
}

}  // namespace kelvane
