#include <kelvane/Platform.hpp>

#include <chrono>

namespace kelvane {

// The waker runs under the signal's lock, so setWaker(nullptr) cannot return while it runs and
// free what it refers to; readers of the flag never take that lock, so a waker may take a lock
// they hold.
void CancelSignal::cancel() {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
    raised_.notify_all();
    if (wake_) wake_();
}

bool CancelSignal::isCancelled() const { return cancelled_; }

bool CancelSignal::waitFor(double seconds) const {
    std::unique_lock lock(mutex_);
    return raised_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return isCancelled(); });
}

void CancelSignal::setWaker(std::function<void()> wake) const {
    std::lock_guard lock(mutex_);
    wake_ = std::move(wake);
}

}  // namespace kelvane
