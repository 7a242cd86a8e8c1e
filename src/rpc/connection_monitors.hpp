// ConnectionMonitors: the socket monitors of every client in the process, read on one thread.
// A client registers its socket with a Listener; the thread hands the listener each connection
// event of that socket, and calls it again when a time it asked for has come. Each socket's
// monitor has an inproc endpoint of its own, so any number of clients share the one context.
//
// Every listener runs on that one thread, so a slow reaction delays everyone's; reactions only
// change state and wake threads.
#pragma once

#include "rpc/wake_pipe.hpp"

#include <zmq.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <thread>

namespace kelvane {

class ConnectionMonitors {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    class Listener {
    public:
        // Each returns when the listener wants onDue() called next; nothing for never.
        virtual std::optional<Deadline> onEvent(std::uint16_t event) = 0;
        virtual std::optional<Deadline> onDue() = 0;

    protected:
        ~Listener() = default;
    };

    explicit ConnectionMonitors(zmq::context_t& context);
    ~ConnectionMonitors();
    ConnectionMonitors(const ConnectionMonitors&) = delete;
    ConnectionMonitors& operator=(const ConnectionMonitors&) = delete;

    // The process's instance, on the process's context; made on first use, never destroyed.
    static ConnectionMonitors& process();

    // Starts handing `listener` the `events` (ZMQ_EVENT_* bits) of `socket`, which the calling
    // thread owns for now. Throws zmq::error_t when the monitor cannot be set up.
    void add(void* socket, int events, Listener& listener);
    // Stops it. Once this returns, `listener` is not running and is never called again. Not
    // from a listener.
    void remove(Listener& listener);

private:
    struct Watched {
        void* socket;
        Listener* listener;
        zmq::socket_t monitor;
        bool leaving = false;
        std::optional<Deadline> due;  // the thread's alone
    };

    void run();
    void dropLeaving();
    void handleEvents(Watched& watched);

    zmq::context_t& context_;
    WakePipe wake_;
    std::mutex mutex_;  // guards the three below
    std::condition_variable dropped_;
    std::list<Watched> watched_;  // erased by the thread only, so it reads them unlocked
    bool stopping_ = false;
    std::uint64_t endpointsMade_ = 0;  // the mutex's too; names each monitor's endpoint
    std::thread thread_;
};

}  // namespace kelvane
