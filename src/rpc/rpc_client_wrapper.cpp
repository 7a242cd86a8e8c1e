#include "rpc/rpc_client_wrapper.hpp"

#include "rpc/json_rpc.hpp"

#include <zmq.hpp>
#include <zmq_addon.hpp>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kelvane {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr const char* monitorEndpoint = "inproc://kelvane-rpc-monitor";
constexpr int reconnectIntervalMs = 100;
// Messages ZeroMQ keeps for the client before it stops reading the connection. Nothing reads the
// socket between calls, so this (times the frame limit) is all a peer sending unasked can cost.
constexpr int receiveHighWaterMark = 8;
// After a drop, ZeroMQ announces its next connect attempt at once; when none comes within this,
// it has ended the session for a protocol error (an oversize frame, a peer of the wrong socket
// type) and will never reconnect by itself, so the client connects anew.
constexpr std::chrono::milliseconds retryAnnouncementWait{200};
// Longer "timeout_ms" values are cut to this, so the deadline arithmetic cannot overflow.
constexpr std::chrono::milliseconds longestCallTimeout = std::chrono::hours(24);

const std::string closedText = "RPC client closed";

// A self-pipe: one thread rouses another that is blocked in poll. Signals do not count;
// one byte or many, the sleeper wakes once and drains them all.
class WakePipe {
public:
    WakePipe() {
        if (::pipe(fds_.data()) != 0) throw zmq::error_t();
        for (int fd : fds_) {
            ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
            ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        }
    }
    ~WakePipe() {
        for (int fd : fds_) ::close(fd);
    }
    WakePipe(const WakePipe&) = delete;
    WakePipe& operator=(const WakePipe&) = delete;

    int readEnd() const { return fds_[0]; }
    // A full pipe already holds a wake-up, so a failed write loses nothing.
    void signal() {
        char byte = 1;
        [[maybe_unused]] auto written = ::write(fds_[1], &byte, 1);
    }
    void drain() {
        std::array<char, 64> bytes;
        while (::read(fds_[0], bytes.data(), bytes.size()) > 0) {
        }
    }

private:
    std::array<int, 2> fds_{-1, -1};
};

// One call waiting for its reply. It lives on the caller's stack; the client reaches it only
// through the pending table, under the client's mutex.
struct PendingCall {
    std::condition_variable changed;
    bool done = false;
    Value result;
    std::optional<RpcError> error;
};

struct Outgoing {
    std::int64_t id;
    std::string text;
};

std::chrono::milliseconds callTimeout(const Value& kwargs,
                                      const RPCClientWrapper::Options& options) {
    if (kwargs.is_object()) {
        auto timeout = kwargs.find("timeout_ms");
        if (timeout != kwargs.end() && timeout->is_number() && integerValue(*timeout) >= 0) {
            auto asked = std::min<long long>(integerValue(*timeout), longestCallTimeout.count());
            return std::chrono::milliseconds(asked) + options.timeoutMargin;
        }
    }
    return options.defaultTimeout;
}

int millisecondsUntil(SteadyClock::time_point deadline) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - SteadyClock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, 1'000'000));
}

// zmq_poll that treats a signal arriving meanwhile as an early wake-up, not a failure.
void pollFor(zmq_pollitem_t* items, int count, long timeoutMs) {
    if (zmq_poll(items, count, timeoutMs) < 0 && zmq_errno() != EINTR) throw zmq::error_t();
}

}  // namespace

// The DEALER socket has no thread of its own: a caller that finds nobody on the socket takes
// the leader's role, sends what is queued, and reads replies (handing each to the caller it
// belongs to) until its own reply is in; then another waiting caller takes over. A lone caller
// so does its whole round trip on its own thread, with no hand-over to another thread. Only the
// connection state comes from a thread of the client's own, which reads the socket monitor.
struct RPCClientWrapper::Impl {
    Impl(std::string endpoint, Options options) : endpoint(std::move(endpoint)), options(options) {}

    const std::string endpoint;
    const Options options;
    const SteadyClock::time_point created = SteadyClock::now();
    std::atomic<std::int64_t> nextId{1};

    zmq::context_t context{1};
    zmq::socket_t dealer{context, zmq::socket_type::dealer};  // the leader's alone
    zmq::socket_t monitor{context, zmq::socket_type::pair};   // the watcher's alone
    WakePipe leaderWake;
    WakePipe watcherStop;
    std::thread watcher;

    std::mutex mutex;  // guards everything below
    std::condition_variable connectionChanged;
    std::condition_variable idle;
    bool connected = false;
    bool closed = false;
    bool leading = false;
    bool reconnectWanted = false;  // by the watcher, of the leader
    int activeCalls = 0;
    std::deque<Outgoing> outbox;
    std::unordered_map<std::int64_t, PendingCall*> pending;

    void open() {
        dealer.set(zmq::sockopt::linger, 0);
        monitor.set(zmq::sockopt::linger, 0);
        if (zmq_socket_monitor(dealer.handle(), monitorEndpoint,
                               ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_DISCONNECTED |
                                   ZMQ_EVENT_CONNECT_RETRIED) != 0) {
            throw zmq::error_t();
        }
        monitor.connect(monitorEndpoint);
        dealer.set(zmq::sockopt::immediate, 1);
        dealer.set(zmq::sockopt::reconnect_ivl, reconnectIntervalMs);
        dealer.set(zmq::sockopt::maxmsgsize, static_cast<std::int64_t>(options.maxReplyBytes));
        dealer.set(zmq::sockopt::rcvhwm, receiveHighWaterMark);
        dealer.connect(endpoint);
        watcher = std::thread([this] { watchConnection(); });
    }

    // With the mutex held: fails every call still waiting and refuses later ones.
    void refuseCalls() {
        closed = true;
        failAll(jsonrpc::clientClosedError, closedText);
        connectionChanged.notify_all();
        leaderWake.signal();
    }

    // Refuses calls, waits until all callers have left, then stops the watcher.
    void close() {
        {
            std::unique_lock lock(mutex);
            refuseCalls();
            idle.wait(lock, [this] { return activeCalls == 0; });
        }
        watcherStop.signal();
        if (watcher.joinable()) watcher.join();
        zmq_socket_monitor(dealer.handle(), nullptr, 0);
    }

    // --- the calling side -------------------------------------------------------------------

    // Callers wait for the first connection only during the grace period after creation;
    // later, a controller that is away makes calls fail at once.
    bool waitForConnection(std::unique_lock<std::mutex>& lock, SteadyClock::time_point deadline) {
        auto until = std::min(deadline, created + options.connectGrace);
        connectionChanged.wait_until(lock, until, [this] { return connected || closed; });
        return connected && !closed;
    }

    // Runs with the mutex held; returns with it held, once `call` is done or its deadline passed.
    void awaitReply(std::unique_lock<std::mutex>& lock, PendingCall& call,
                    SteadyClock::time_point deadline) {
        while (!call.done && SteadyClock::now() < deadline) {
            if (!leading) {
                leading = true;
                HandOver handOver{*this, lock};
                lead(lock, call, deadline);
                return;
            }
            call.changed.wait_until(lock, deadline, [&] { return call.done || !leading; });
        }
    }

    // When a leader leaves, however it leaves, every waiting caller looks; the first to get the
    // mutex leads next.
    struct HandOver {
        Impl& impl;
        std::unique_lock<std::mutex>& lock;
        ~HandOver() {
            if (!lock.owns_lock()) lock.lock();
            impl.leading = false;
            for (auto& [id, other] : impl.pending) other->changed.notify_one();
        }
    };

    // --- the leader -------------------------------------------------------------------------

    void lead(std::unique_lock<std::mutex>& lock, PendingCall& call,
              SteadyClock::time_point deadline) {
        while (!call.done && !closed) {
            if (std::exchange(reconnectWanted, false)) {
                lock.unlock();
                reconnect();
                lock.lock();
            }
            // Requests of calls that timed out before they went out are not sent at all.
            std::erase_if(outbox, [this](const Outgoing& request) {
                return !pending.contains(request.id);
            });
            auto sending = std::exchange(outbox, {});
            lock.unlock();
            auto unsent = sendAll(sending);
            std::optional<jsonrpc::Reply> reply;
            if (unsent.empty() && waitForTraffic(deadline)) reply = receiveOne();
            lock.lock();
            for (auto id : unsent) {
                finish(id, nullptr, RpcError{jsonrpc::notConnectedError, notReachableText()});
            }
            if (reply) finish(reply->id, std::move(reply->result), std::move(reply->error));
            if (!call.done && SteadyClock::now() >= deadline) return;
        }
    }

    // The ids that could not be handed to ZeroMQ because no connection is up.
    std::vector<std::int64_t> sendAll(const std::deque<Outgoing>& sending) {
        std::vector<std::int64_t> unsent;
        for (const auto& request : sending) {
            if (!sendOne(request.text)) unsent.push_back(request.id);
        }
        return unsent;
    }

    bool sendOne(const std::string& text) {
        try {
            auto delimiterFlags = zmq::send_flags::sndmore | zmq::send_flags::dontwait;
            if (!dealer.send(zmq::message_t(), delimiterFlags)) return false;
            // The delimiter went out, so ZeroMQ takes the body of the same message at once.
            dealer.send(zmq::buffer(text), zmq::send_flags::dontwait);
            return true;
        } catch (const zmq::error_t&) {
            return false;
        }
    }

    // Waits until a reply may be there to read (true), or until a caller has queued a request,
    // closing or a lost connection has ended a call, or the deadline has passed (false). It polls
    // the socket's own notification descriptor beside the wake pipe, with as few system calls as
    // a blocking receive makes: they are most of what a round trip costs beyond the network.
    bool waitForTraffic(SteadyClock::time_point deadline) {
        try {
            // The descriptor only tells us to look again, and a send may already have taken its
            // signal; so the socket's events are asked first.
            if (dealer.get(zmq::sockopt::events) & ZMQ_POLLIN) return true;
            pollfd fds[] = {{dealer.get(zmq::sockopt::fd), POLLIN, 0},
                            {leaderWake.readEnd(), POLLIN, 0}};
            int ready = ::poll(fds, 2, millisecondsUntil(deadline));
            if (ready < 0) return false;  // a signal: the leader's loop looks again
            if (fds[1].revents & POLLIN) {
                // Drained only now: anything queued later is seen by the next outbox check.
                leaderWake.drain();
                return false;
            }
            return fds[0].revents & POLLIN;  // a receive tells whether it was a reply
        } catch (const zmq::error_t&) {
            return false;  // the caller's deadline still bounds the wait
        }
    }

    // One message from the controller, if it is a reply of the expected shape and size; any other
    // frame is dropped here. Further messages wake the next wait at once.
    std::optional<jsonrpc::Reply> receiveOne() {
        std::vector<zmq::message_t> parts;
        try {
            auto received = zmq::recv_multipart(dealer, std::back_inserter(parts),
                                                zmq::recv_flags::dontwait);
            if (!received) return std::nullopt;
        } catch (const zmq::error_t&) {
            return std::nullopt;
        }
        if (parts.size() != 2 || parts[0].size() != 0) return std::nullopt;
        return jsonrpc::decodeReply(parts[1].to_string_view());
    }

    // With the mutex held. A reply for a call that is no longer waiting (it timed out) is dropped.
    void finish(std::int64_t id, Value result, std::optional<RpcError> error) {
        auto found = pending.find(id);
        if (found == pending.end()) return;
        auto& call = *found->second;
        call.result = std::move(result);
        call.error = std::move(error);
        call.done = true;
        call.changed.notify_one();
        pending.erase(found);
    }

    // With the mutex held.
    void failAll(int code, const std::string& message) {
        for (auto& [id, call] : pending) {
            call->error = RpcError{code, message};
            call->done = true;
            call->changed.notify_one();
        }
        pending.clear();
    }

    // --- the watcher ------------------------------------------------------------------------

    void watchConnection() {
        zmq_pollitem_t items[] = {{monitor.handle(), 0, ZMQ_POLLIN, 0},
                                  {nullptr, watcherStop.readEnd(), ZMQ_POLLIN, 0}};
        std::optional<SteadyClock::time_point> retryDue;
        try {
            while (true) {
                long waitMs = retryDue ? millisecondsUntil(*retryDue) : -1;
                pollFor(items, 2, waitMs);
                if (items[1].revents & ZMQ_POLLIN) return;
                if (items[0].revents & ZMQ_POLLIN) {
                    auto event = readMonitorEvent();
                    if (event == ZMQ_EVENT_DISCONNECTED) {
                        retryDue = SteadyClock::now() + retryAnnouncementWait;
                    } else if (event) {
                        retryDue.reset();
                    }
                } else if (retryDue && SteadyClock::now() >= *retryDue) {
                    // When the leader is asked to do it, look again later: it may leave first.
                    retryDue.reset();
                    if (!reconnectAfterProtocolError()) {
                        retryDue = SteadyClock::now() + retryAnnouncementWait;
                    }
                }
            }
        } catch (const zmq::error_t&) {
            // The monitor is gone; the connection state stays as last seen.
        }
    }

    // The socket is the leader's: a leader reconnects at its next step; with none, the watcher
    // takes the leader's role for the moment it takes. True when the watcher did it.
    bool reconnectAfterProtocolError() {
        std::unique_lock lock(mutex);
        if (leading) {
            reconnectWanted = true;
            leaderWake.signal();
            return false;
        }
        leading = true;
        HandOver handOver{*this, lock};
        lock.unlock();
        reconnect();
        return true;
    }

    // With the leader's role. Ends whatever is left of the old session and starts a new one.
    void reconnect() {
        zmq_disconnect(dealer.handle(), endpoint.c_str());
        zmq_connect(dealer.handle(), endpoint.c_str());
    }

    // The event read, if any.
    std::optional<std::uint16_t> readMonitorEvent() {
        std::vector<zmq::message_t> parts;
        if (!zmq::recv_multipart(monitor, std::back_inserter(parts), zmq::recv_flags::dontwait) ||
            parts.empty() || parts[0].size() < sizeof(std::uint16_t)) {
            return std::nullopt;
        }
        std::uint16_t event = 0;
        std::memcpy(&event, parts[0].data(), sizeof event);
        if (event == ZMQ_EVENT_CONNECT_RETRIED) return event;
        bool nowConnected = event == ZMQ_EVENT_HANDSHAKE_SUCCEEDED;
        std::lock_guard lock(mutex);
        connected = nowConnected;
        connectionChanged.notify_all();
        if (!nowConnected) {
            // Requests sent before the controller went away will never be answered.
            failAll(jsonrpc::notConnectedError, "connection to " + endpoint + " lost");
            leaderWake.signal();
        }
        return event;
    }

    std::string notReachableText() const {
        return "controller at " + endpoint + " is not reachable";
    }
};

std::shared_ptr<RPCClientWrapper> RPCClientWrapper::initWithIP(const std::string& ip,
                                                              std::uint32_t port, Options options) {
    try {
        auto impl = std::make_unique<Impl>("tcp://" + ip + ":" + std::to_string(port), options);
        impl->open();
        return std::shared_ptr<RPCClientWrapper>(new RPCClientWrapper(std::move(impl)));
    } catch (const std::exception&) {
        return nullptr;
    }
}

std::shared_ptr<RPCClientWrapper> RPCClientWrapper::initWithIP(const std::string& ip,
                                                              std::uint32_t port) {
    return initWithIP(ip, port, Options{});
}

RPCClientWrapper::RPCClientWrapper(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

RPCClientWrapper::~RPCClientWrapper() {
    try {
        impl_->close();
    } catch (...) {
        // Closing only fails when the system is out of resources; the sockets still go with impl_.
    }
}

void RPCClientWrapper::close() {
    std::lock_guard lock(impl_->mutex);
    impl_->refuseCalls();
}

bool RPCClientWrapper::isConnected() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->connected;
}

Value RPCClientWrapper::call(const std::string& method, const Value& args, const Value& kwargs,
                             RpcErrorSlot error) {
    auto& impl = *impl_;
    auto fail = [&](int code, std::string message) -> Value {
        if (error) *error = RpcError{code, std::move(message)};
        return nullptr;
    };
    auto timeout = callTimeout(kwargs, impl.options);
    auto deadline = SteadyClock::now() + timeout;
    auto id = impl.nextId.fetch_add(1);
    std::string request = jsonrpc::encodeRequest({id, method, args, kwargs});

    std::unique_lock lock(impl.mutex);
    if (impl.closed) return fail(jsonrpc::clientClosedError, closedText);
    ++impl.activeCalls;
    struct Leaving {
        Impl& impl;
        ~Leaving() {
            if (--impl.activeCalls == 0 && impl.closed) impl.idle.notify_all();
        }
    } leaving{impl};  // declared after the lock, so it runs while the mutex is still held


    if (!impl.waitForConnection(lock, deadline)) {
        if (impl.closed) return fail(jsonrpc::clientClosedError, closedText);
        return fail(jsonrpc::notConnectedError, impl.notReachableText());
    }
    PendingCall pending;
    impl.pending.emplace(id, &pending);
    // However the call ends, the table keeps no pointer to this frame: a reply that still comes
    // for this id is dropped, never handed to another call.
    struct Forget {
        Impl& impl;
        std::unique_lock<std::mutex>& lock;
        std::int64_t id;
        ~Forget() {
            if (!lock.owns_lock()) lock.lock();
            impl.pending.erase(id);
        }
    } forget{impl, lock, id};

    impl.outbox.push_back({id, std::move(request)});
    if (impl.leading) impl.leaderWake.signal();
    impl.awaitReply(lock, pending, deadline);
    if (!pending.done) {
        return fail(jsonrpc::timeoutError,
                    method + " timed out after " + std::to_string(timeout.count()) + " ms");
    }
    if (pending.error) {
        if (error) *error = std::move(pending.error);
        return nullptr;
    }
    return std::move(pending.result);
}

}  // namespace kelvane
