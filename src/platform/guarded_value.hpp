// A value that several threads read and replace whole, under a lock of its own.
#pragma once

#include <mutex>
#include <utility>

namespace kelvane {

// get() copies the value and set() replaces it, each holding the lock for that alone, never
// across a call, a sleep or a write to a file or the log; so no lock is ever taken while this
// one is held. Every member is safe from any thread.
template <class T>
class GuardedValue {
public:
    GuardedValue() = default;
    explicit GuardedValue(T value) : value_(std::move(value)) {}
    GuardedValue(const GuardedValue&) = delete;
    GuardedValue& operator=(const GuardedValue&) = delete;

    T get() const {
        std::lock_guard lock(mutex_);
        return value_;
    }
    // The old value is released after the lock, so its destructor (a client's, say) never runs
    // under it.
    void set(T value) {
        {
            std::lock_guard lock(mutex_);
            std::swap(value_, value);
        }
    }

private:
    mutable std::mutex mutex_;
    T value_{};
};

}  // namespace kelvane
