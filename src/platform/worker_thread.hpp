// A named background thread for the session's workers: made unstarted, started once, and asked
// to stop through a flag its body tests between steps, and which ends the body's cancellable
// sleeps at once. Built on std::thread alone, so it behaves the same with every standard library
// the product is built with.
#pragma once

#include <kelvane/Platform.hpp>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace kelvane {

// Thrown by WorkerThread::start() for a worker that was started before.
class WorkerAlreadyStarted : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

class WorkerThread {
    struct State;

public:
    // A worker as its body and other observers see it. Copies stay valid after the WorkerThread
    // is gone, so whoever holds one can still wait for the body to return.
    class Handle {
    public:
        bool isCancelled() const;
        // Raised by cancel(): a Clock::sleepUnlessCancelled on it ends when the worker is.
        const CancelSignal& cancelSignal() const;
        bool isFinished() const;
        // Blocks until the body has returned; returns at once for a worker never started.
        void waitUntilFinished() const;

    private:
        friend class WorkerThread;
        explicit Handle(std::shared_ptr<State> state) : state_(std::move(state)) {}
        std::shared_ptr<State> state_;
    };

    using Body = std::function<void(const Handle& self)>;

    // The name is also the thread's name in the operating system where it takes one (Linux
    // keeps its first 15 characters).
    WorkerThread(std::string name, Body body);
    // Does not wait and does not cancel: a running body runs on until it returns.
    ~WorkerThread();

    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    const std::string& name() const;
    // Runs the body on a thread of its own. Throws WorkerAlreadyStarted when called a second
    // time, and std::system_error when no thread can be made (the worker then counts as
    // finished). An exception that leaves the body ends the worker and goes no further.
    void start();
    bool isStarted() const;
    // Asks the body to stop; it sees the request the next time it tests isCancelled(), and a
    // sleep on its cancel signal ends.
    void cancel();
    bool isCancelled() const;
    Handle handle() const;

private:
    std::shared_ptr<State> state_;
    Body body_;
};

}  // namespace kelvane
