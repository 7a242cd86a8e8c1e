#include "task_queue.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace kelvane::sim {

TaskQueue::TaskQueue() {
    int fds[2];
    if (::pipe(fds) != 0) throw std::system_error(errno, std::generic_category(), "no wake-up pipe");
    for (int fd : fds) {
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
    wakeRead_ = fds[0];
    wakeWrite_ = fds[1];
}

TaskQueue::~TaskQueue() {
    ::close(wakeRead_);
    ::close(wakeWrite_);
}

void TaskQueue::post(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    wake();
}

// A full pipe already wakes the serving thread, so a write that would block is not needed.
void TaskQueue::wake() const noexcept {
    char byte = 0;
    [[maybe_unused]] auto written = ::write(wakeWrite_, &byte, 1);
}

// The pipe is emptied before the tasks are taken: a task posted meanwhile leaves a byte behind
// and is run on the next turn.
void TaskQueue::runPosted() {
    char drained[256];
    while (::read(wakeRead_, drained, sizeof drained) > 0) {
    }
    std::vector<std::function<void()>> tasks;
    {
        std::lock_guard lock(mutex_);
        tasks.swap(tasks_);
    }
    for (auto& task : tasks) task();
}

}  // namespace kelvane::sim
