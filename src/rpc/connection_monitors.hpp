// ConnectionMonitors: the socket monitors of every client in the process, read on one thread.
// A client registers its socket with a Listener; the thread hands the listener each connection
// event of that socket, and calls it again when a time it asked for has come. Each socket's
// monitor has an inproc endpoint of its own, so any number of clients share the one context.
//
// Every listener runs on that one thread, so a slow reaction delays everyone's; reactions only
// change state and wake threads.
//
// ZeroMQ's I/O thread, which every socket of the context shares, sends each event with a send
// that blocks while no reader takes it, holding the watched socket's monitor lock: a monitor left
// without its reader stalls every client of the process. So remove() stops the monitor while the
// thread still reads it, and only then lets the reader go; and the reader queues without limit
// (ZeroMQ's default limit would hold up the I/O thread after 2,000 events the thread has not
// read yet), so a slow reaction never holds up the I/O thread either.
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
    // Once every listener has been removed.
    ~ConnectionMonitors();
    ConnectionMonitors(const ConnectionMonitors&) = delete;
    ConnectionMonitors& operator=(const ConnectionMonitors&) = delete;

    // The process's instance, on the process's context; made on first use, never destroyed.
    static ConnectionMonitors& process();

    // Starts handing `listener` the `events` (ZMQ_EVENT_* bits) of `socket`, which the calling
    // thread owns for now. Throws zmq::error_t when the monitor cannot be set up.
    void add(void* socket, int events, Listener& listener);
    // Stops it, on the thread that owns `socket` again. Once this returns, `listener` is not
    // running and is never called again, and the socket has no monitor. Not from a listener.
    void remove(Listener& listener);

private:
    // How far remove() has got: the listener is called only while `watching`; the monitor is
    // read until `stopped`, then the thread closes it.
    enum class Stage { watching, leaving, stopped };

    struct Watched {
        void* socket;
        Listener* listener;
        zmq::socket_t monitor;
        Stage stage = Stage::watching;
        std::optional<Deadline> due;  // the thread's alone
    };
    struct Polled {
        Watched* watched;
        bool listening;
    };

    void run();
    void dropStopped();
    void handleEvents(Watched& watched, bool listening);
    // Under the lock: moves `watched` to `stage` and waits until the thread has seen it.
    void advance(std::unique_lock<std::mutex>& lock, Watched& watched, Stage stage);

    zmq::context_t& context_;
    WakePipe wake_;
    std::mutex mutex_;  // guards the four below
    std::condition_variable looked_;
    std::list<Watched> watched_;  // erased by the thread only, so it reads them unlocked
    std::uint64_t looks_ = 0;     // the thread's looks at the list; a listener runs between two
    bool stopping_ = false;
    std::uint64_t endpointsMade_ = 0;  // the mutex's too; names each monitor's endpoint
    std::thread thread_;
};

}  // namespace kelvane
