// Work that other threads hand to the serving thread. The models are single-threaded: whatever
// reads or changes a fixture from another thread (a control panel, say) is posted here and runs
// between two turns of the serving loop, so the models need no locks.
#pragma once

#include <functional>
#include <mutex>
#include <vector>

namespace kelvane::sim {

class TaskQueue {
public:
    // Throws std::system_error when the wake-up pipe cannot be made.
    TaskQueue();
    ~TaskQueue();

    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    // Any thread: queues the task and wakes the serving thread.
    void post(std::function<void()> task);
    // Any thread, signal handlers included: makes the serving thread's poll return.
    void wake() const noexcept;
    // Readable while tasks wait: the serving thread polls it beside its sockets.
    int wakeDescriptor() const { return wakeRead_; }
    // Serving thread: runs the tasks posted so far, oldest first. Tasks never run are dropped
    // with the queue.
    void runPosted();

private:
    std::mutex mutex_;
    std::vector<std::function<void()>> tasks_;
    int wakeRead_ = -1;
    int wakeWrite_ = -1;
};

}  // namespace kelvane::sim
