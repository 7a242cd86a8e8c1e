// Time that moves only when the code under test sleeps (or a test advances it).
#pragma once

#include <kelvane/Platform.hpp>

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace kelvane::testing {

class VirtualClock final : public Clock {
public:
    explicit VirtualClock(double start = 1'700'000'000.0) : now_(start) {}

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
        sleeps_.push_back(seconds);
        auto hook = std::exchange(atNextSleep_, nullptr);
        lock.unlock();  // the hook may use the clock
        if (hook) hook();
        advance(seconds);
    }
    // Runs `hook` once, at the next sleep: in a poll loop, after the first look.
    void atNextSleep(std::function<void()> hook) {
        std::lock_guard lock(mutex_);
        atNextSleep_ = std::move(hook);
    }
    void advance(double seconds) {
        std::lock_guard lock(mutex_);
        now_ += seconds;
        monotonic_ += seconds;
    }
    // The wall clock alone is set (a time sync); the monotonic clock does not move.
    void stepWallClock(double seconds) {
        std::lock_guard lock(mutex_);
        now_ += seconds;
    }
    std::vector<double> sleeps() const {
        std::lock_guard lock(mutex_);
        return sleeps_;
    }

private:
    mutable std::mutex mutex_;
    double now_;
    double monotonic_ = 1000.0;
    std::vector<double> sleeps_;
    std::function<void()> atNextSleep_;
};

}  // namespace kelvane::testing
