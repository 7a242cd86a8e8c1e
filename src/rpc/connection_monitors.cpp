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

ConnectionMonitors::ConnectionMonitors(zmq::context_t& context) : context_(context), thread_([this] { run(); }) {}

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
    try {
        zmq::socket_t monitor(context_, zmq::socket_type::pair);
        monitor.set(zmq::sockopt::linger, 0);
        monitor.set(zmq::sockopt::rcvhwm, 0);  // no limit, so ZeroMQ's sends to it never wait
        monitor.connect(endpoint);
        watched_.push_back({socket, &listener, std::move(monitor), Stage::watching, std::nullopt});
    } catch (...) {
        zmq_socket_monitor(socket, nullptr, 0);
        throw;
    }
    lock.unlock();
    wake_.signal();
}

void ConnectionMonitors::remove(Listener& listener) {
    std::unique_lock lock(mutex_);
    auto isListener = [&](const Watched& watched) { return watched.listener == &listener; };
    auto found = std::find_if(watched_.begin(), watched_.end(), isListener);
    if (found == watched_.end()) return;
    // Once the thread has looked, no reaction runs: the socket is its owner's alone again.
    advance(lock, *found, Stage::leaving);
    lock.unlock();
    // The thread still reads the monitor, so an event ZeroMQ is sending meanwhile gets through
    // and the stop gets the socket's monitor lock. (Stopping sends no event of its own: the
    // events watched leave out ZMQ_EVENT_MONITOR_STOPPED.)
    zmq_socket_monitor(found->socket, nullptr, 0);
    lock.lock();
    advance(lock, *found, Stage::stopped);
}

void ConnectionMonitors::advance(std::unique_lock<std::mutex>& lock, Watched& watched, Stage stage) {
    watched.stage = stage;
    auto looksBefore = looks_;
    wake_.signal();
    looked_.wait(lock, [&] { return looks_ != looksBefore; });
}

void ConnectionMonitors::run() {
    std::vector<Polled> polled;
    std::vector<zmq_pollitem_t> items;
    while (true) {
        {
            std::lock_guard lock(mutex_);
            if (stopping_) break;
            dropStopped();
            polled.clear();
            for (auto& watched : watched_) polled.push_back({&watched, watched.stage == Stage::watching});
            ++looks_;
            looked_.notify_all();
        }
        items.assign({{nullptr, wake_.readEnd(), ZMQ_POLLIN, 0}});
        std::optional<Deadline> nextDue;
        for (auto [watched, listening] : polled) {
            items.push_back({watched->monitor.handle(), 0, ZMQ_POLLIN, 0});
            auto due = listening ? watched->due : std::nullopt;
            if (due) nextDue = std::min(nextDue.value_or(*due), *due);
        }
        // A failed poll (a signal) only makes the loop look again.
        int ready = zmq_poll(items.data(), static_cast<int>(items.size()), millisecondsUntil(nextDue));
        if (ready > 0 && (items[0].revents & ZMQ_POLLIN)) wake_.drain();
        for (std::size_t i = 0; i < polled.size(); ++i) {
            auto [watched, listening] = polled[i];
            if (ready > 0 && (items[i + 1].revents & ZMQ_POLLIN)) handleEvents(*watched, listening);
            auto& due = watched->due;
            if (listening && due && SteadyClock::now() >= *due) {
                try {
                    due = watched->listener->onDue();
                } catch (...) {
                    due.reset();  // out of memory: the client goes without this reconnect
                }
            }
        }
    }
}

// Under the mutex. The readers are the thread's, so it closes them itself.
void ConnectionMonitors::dropStopped() {
    watched_.remove_if([](const Watched& watched) { return watched.stage == Stage::stopped; });
}

// Reads every event waiting on one monitor and hands each to its listener, if it still listens.
void ConnectionMonitors::handleEvents(Watched& watched, bool listening) {
    try {
        while (true) {
            std::vector<zmq::message_t> parts;
            if (!zmq::recv_multipart(watched.monitor, std::back_inserter(parts), zmq::recv_flags::dontwait)) {
                return;
            }
            auto event = eventOf(parts);
            if (event && listening) watched.due = watched.listener->onEvent(*event);
        }
    } catch (...) {
        // A monitor that fails to read, or a reaction out of memory: the next event is read anew.
    }
}

}  // namespace kelvane
