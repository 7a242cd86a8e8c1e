// The fixtures' states on their way to the panel's event stream. The serving thread says when a
// fixture may have changed; the feed reads that fixture's state at most ten times a second (a
// flood of requests costs the serving thread no more than that) and always publishes the last
// change. Readers on other threads wait for what is new to them.
#pragma once

#include <kelvane/Value.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
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

    explicit StateFeed(int fixtures);

    // Serving thread: fixture k may have changed at `now`. Reads its state through `readState`
    // unless the last reading is less than a gap old, and says when to call again: when the
    // gap ends, or when the move under way ends (a move ends without a request).
    std::optional<Clock::time_point> changed(int fixture, Clock::time_point now,
                                             const std::function<Value()>& readState);

    struct News {
        int fixture;
        std::string stateJson;
    };
    // Any thread: the states published since `seen` (one counter per fixture, brought up to
    // date), waiting until `until` while there are none; nothing at all once closed.
    std::optional<std::vector<News>> waitForNews(std::vector<std::uint64_t>& seen, Clock::time_point until);
    // Any thread: wakes every reader for good.
    void close();

private:
    struct Published {
        std::uint64_t version = 0;
        std::string stateJson;
    };

    std::mutex mutex_;
    std::condition_variable news_;
    std::vector<Published> published_;
    bool closed_ = false;
    std::vector<std::optional<Clock::time_point>> nextReading_;  // serving thread only
};

}  // namespace kelvane::sim
