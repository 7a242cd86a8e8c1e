// The fixtures' states on their way to the panel's event streams. The serving thread says when a
// fixture may have changed; the feed reads that fixture's state at most ten times a second (a
// flood of requests costs the serving thread no more than that), always publishes the last
// change, and keeps the last state published of each fixture for the streams opened later.
#pragma once

#include <kelvane/Value.hpp>

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kelvane::sim {

class StateFeed {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds shortestGap{100};

    struct News {
        int fixture;
        std::string stateJson;
    };
    // `publish` gets each state published, on the serving thread.
    StateFeed(int fixtures, std::function<void(const News&)> publish);

    // Serving thread: fixture k may have changed at `now`. Reads its state through `readState`
    // unless the last reading is less than a gap old, and says when to call again: when the
    // gap ends, or when the move under way ends (a move ends without a request).
    std::optional<Clock::time_point> changed(int fixture, Clock::time_point now,
                                             const std::function<Value()>& readState);

    // Any thread: the last state published of each fixture that has published one.
    std::vector<News> lastPublished() const;

private:
    const std::function<void(const News&)> publish_;
    mutable std::mutex mutex_;
    std::vector<std::string> published_;                         // "" until the first
    std::vector<std::optional<Clock::time_point>> nextReading_;  // serving thread only
};

}  // namespace kelvane::sim
