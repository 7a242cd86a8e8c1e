// Time for worker threads: sleepFor() blocks until the test moves time past the sleeper's wake-up
// (or releases it), so a loop "pass; sleep 1.5 s" runs one pass per step of the test, with no
// real sleeping and no spinning. Poll loops on the test's own thread use VirtualClock instead.
#pragma once

#include <kelvane/Platform.hpp>

#include <condition_variable>
#include <cstddef>
#include <list>
#include <mutex>

namespace kelvane::testing {

class SteppedClock final : public Clock {
public:
    explicit SteppedClock(double start = 1'700'000'000.0) : now_(start) {}

    double now() override {
        std::lock_guard lock(mutex_);
        return now_;
    }
    double monotonic() override {
        std::lock_guard lock(mutex_);
        return monotonic_;
    }
    void sleepFor(double seconds) override {
        std::unique_lock lock(mutex_);
        if (seconds <= 0) return;
        if (free_) {
            now_ += seconds;
            monotonic_ += seconds;
            return;
        }
        auto sleeper = sleepers_.insert(sleepers_.end(), Sleeper{monotonic_ + seconds});
        changed_.notify_all();
        changed_.wait(lock, [&] { return sleeper->woken; });
        sleepers_.erase(sleeper);
    }

    // Blocks until at least `count` threads sleep and have not been woken.
    void waitForSleepers(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return asleep() >= count; });
    }
    // Both clocks move; sleepers whose wake-up has come are woken (and no longer count as
    // asleep, even before their threads run again).
    void advance(double seconds) {
        std::lock_guard lock(mutex_);
        now_ += seconds;
        monotonic_ += seconds;
        for (auto& sleeper : sleepers_) sleeper.woken = sleeper.woken || sleeper.wakeAt <= monotonic_;
        changed_.notify_all();
    }
    // Wakes every sleeper, and from now on sleeps return at once (moving the clocks), so
    // workers can run to their end when a test is over.
    void releaseAll() {
        std::lock_guard lock(mutex_);
        free_ = true;
        for (auto& sleeper : sleepers_) sleeper.woken = true;
        changed_.notify_all();
    }

private:
    struct Sleeper {
        double wakeAt;
        bool woken = false;
    };

    std::size_t asleep() const {
        std::size_t count = 0;
        for (const auto& sleeper : sleepers_) count += sleeper.woken ? 0 : 1;
        return count;
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    double now_;
    double monotonic_ = 1000.0;
    bool free_ = false;
    std::list<Sleeper> sleepers_;
};

}  // namespace kelvane::testing
