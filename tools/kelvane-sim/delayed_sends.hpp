// Messages held back until their time (scripted "delay_ms"), so a delayed reply never keeps
// the server from answering other requests meanwhile.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kelvane::sim {

using Frames = std::vector<std::string>;

class DelayedSends {
public:
    using Clock = std::chrono::steady_clock;

    void schedule(Clock::time_point due, Frames message) { queue_.emplace(due, std::move(message)); }

    std::optional<Clock::time_point> nextDue() const {
        if (queue_.empty()) return std::nullopt;
        return queue_.begin()->first;
    }

    // The messages due by `now`, earliest first; messages due at the same time in the order
    // they were scheduled.
    std::vector<Frames> takeDue(Clock::time_point now) {
        std::vector<Frames> due;
        while (!queue_.empty() && queue_.begin()->first <= now) {
            due.push_back(std::move(queue_.begin()->second));
            queue_.erase(queue_.begin());
        }
        return due;
    }

    void clear() { queue_.clear(); }

private:
    std::multimap<Clock::time_point, Frames> queue_;
};

}  // namespace kelvane::sim
