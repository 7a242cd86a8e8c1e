#include "rpc/connection_monitors.hpp"

#include "rpc/process_context.hpp"

#include <zmq_addon.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace kelvane {
namespace {

using SteadyClock = std::chrono::steady_clock;

long millisecondsUntil(std::optional<SteadyClock::time_point> deadline) {
    if (!deadline) return -1;
    auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - SteadyClock::now());
    return std::clamp<long long>(left.count(), 0, 1'000'000);
}

// The event number of one monitor message, if it has the shape ZeroMQ gives it.
std::optional<std::uint16_t> eventOf(const std::vector<zmq::message_t>& parts) {
    if (parts.empty() || parts[0].size() < sizeof(std::uint16_t)) return std::nullopt;
    std::uint16_t event = 0;
    std::memcpy(&event, parts[0].data(), sizeof event);
    return event;
}

}  // namespace

ConnectionMonitors::ConnectionMonitors(zmq::context_t& context)
    : context_(context), thread_([this] { run(); }) {}

ConnectionMonitors::~ConnectionMonitors() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.signal();
    thread_.join();
}

// Leaked like the context it uses: clients destroyed by static destructors still leave it.
ConnectionMonitors& ConnectionMonitors::process() {
    static auto* const monitors = new ConnectionMonitors(processContext());
    return *monitors;
}

void ConnectionMonitors::add(void* socket, int events, Listener& listener) {
    std::unique_lock lock(mutex_);
    auto endpoint = "inproc://kelvane-rpc-monitor-" + std::to_string(++endpointsMade_);
    if (zmq_socket_monitor(socket, endpoint.c_str(), events) != 0) throw zmq::error_t();
    zmq::socket_t monitor(context_, zmq::socket_type::pair);
    monitor.set(zmq::sockopt::linger, 0);
    monitor.connect(endpoint);
    watched_.push_back({socket, &listener, std::move(monitor), false, std::nullopt});
    lock.unlock();
    wake_.signal();
}

void ConnectionMonitors::remove(Listener& listener) {
    std::unique_lock lock(mutex_);
    auto isListener = [&](const Watched& watched) { return watched.listener == &listener; };
    auto found = std::find_if(watched_.begin(), watched_.end(), isListener);
    if (found == watched_.end()) return;
    void* socket = found->socket;
    found->leaving = true;
    wake_.signal();
    dropped_.wait(lock, [&] {
        return stopping_ || std::none_of(watched_.begin(), watched_.end(), isListener);
    });
    lock.unlock();
    zmq_socket_monitor(socket, nullptr, 0);
}

void ConnectionMonitors::run() {
    std::vector<Watched*> polled;
    std::vector<zmq_pollitem_t> items;
    while (true) {
        {
            std::lock_guard lock(mutex_);
            if (stopping_) break;
            dropLeaving();
            polled.clear();
            for (auto& watched : watched_) polled.push_back(&watched);
        }
        items.assign({{nullptr, wake_.readEnd(), ZMQ_POLLIN, 0}});
        std::optional<Deadline> nextDue;
        for (auto* watched : polled) {
            items.push_back({watched->monitor.handle(), 0, ZMQ_POLLIN, 0});
            if (watched->due) nextDue = std::min(nextDue.value_or(*watched->due), *watched->due);
        }
        // A failed poll (a signal) only makes the loop look again.
        int ready = zmq_poll(items.data(), static_cast<int>(items.size()), millisecondsUntil(nextDue));
        if (ready > 0 && (items[0].revents & ZMQ_POLLIN)) wake_.drain();
        for (std::size_t i = 0; i < polled.size(); ++i) {
            if (ready > 0 && (items[i + 1].revents & ZMQ_POLLIN)) handleEvents(*polled[i]);
            auto& due = polled[i]->due;
            if (due && SteadyClock::now() >= *due) {
                try {
                    due = polled[i]->listener->onDue();
                } catch (...) {
                    due.reset();  // out of memory: the client goes without this reconnect
                }
            }
        }
    }
    // Stopping: the sockets go with the list; their clients are gone or never ask again.
    std::lock_guard lock(mutex_);
    watched_.clear();
    dropped_.notify_all();
}

// Under the mutex. The monitor sockets are the thread's, so it closes them itself.
void ConnectionMonitors::dropLeaving() {
    auto before = watched_.size();
    watched_.remove_if([](const Watched& watched) { return watched.leaving; });
    if (watched_.size() != before) dropped_.notify_all();
}

// Reads every event waiting on one monitor and hands each to its listener.
void ConnectionMonitors::handleEvents(Watched& watched) {
    try {
        while (true) {
            std::vector<zmq::message_t> parts;
            if (!zmq::recv_multipart(watched.monitor, std::back_inserter(parts),
                                     zmq::recv_flags::dontwait)) {
                return;
            }
            if (auto event = eventOf(parts)) watched.due = watched.listener->onEvent(*event);
        }
    } catch (...) {
        // A monitor that fails to read, or a reaction out of memory: the next event is read anew.
    }
}

}  // namespace kelvane
