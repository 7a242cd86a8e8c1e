// Time for worker threads: a sleep blocks until the test moves time past its wake-up (or releases
// it), so a loop "pass; sleep 1.5 s" runs one pass per step of the test.
#pragma once

#include "virtual_clock.hpp"

#include <algorithm>
#include <condition_variable>
#include <iterator>
#include <set>

namespace kelvane::testing {

class SteppedClock final : public Clock {
public:
    double now() override { return time_.now(); }
    double monotonic() override { return time_.monotonic(); }
    void sleepFor(double seconds) override { sleepUnlessCancelled(seconds, CancelSignal()); }
    // A raised signal wakes the sleeper at once; time does not move.
    void sleepUnlessCancelled(double seconds, const CancelSignal& cancel) override {
        cancel.setWaker([this] {
            std::lock_guard lock(mutex_);
            changed_.notify_all();
        });
        if (std::unique_lock lock(mutex_); seconds > 0 && free_) {
            time_.advance(seconds);
        } else if (seconds > 0 && !cancel.isCancelled()) {
            auto wakeUp = wakeUps_.insert(time_.monotonic() + seconds);
            changed_.notify_all();
            changed_.wait(lock, [&] { return free_ || *wakeUp <= time_.monotonic() || cancel.isCancelled(); });
            wakeUps_.erase(wakeUp);
        }
        cancel.setWaker(nullptr);  // not under mutex_, which the waker takes
    }

    // Blocks until at least `count` threads sleep and have not been woken.
    void waitForSleepers(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return asleep() >= count; });
    }
    // Sleepers whose wake-up has come no longer count as asleep, even before their threads run.
    void advance(double seconds) {
        std::lock_guard lock(mutex_);
        time_.advance(seconds);
        changed_.notify_all();
    }
    // From now on sleeps return at once, so workers can run to their end when a test is over.
    void releaseAll() {
        std::lock_guard lock(mutex_);
        free_ = true;
        changed_.notify_all();
    }

private:
    std::size_t asleep() {
        return free_ ? 0 : std::size_t(std::distance(wakeUps_.upper_bound(time_.monotonic()), wakeUps_.end()));
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    VirtualClock time_;
    bool free_ = false;
    std::multiset<double> wakeUps_;
};

}  // namespace kelvane::testing
