#include "state_feed.hpp"

#include <kelvane/protocol/json_rpc.hpp>

#include <algorithm>

namespace kelvane::sim {
namespace {

// When a move under way ends by itself; never for a stalled one, which only a change ends.
std::optional<StateFeed::Clock::time_point> moveEnd(const Value& state, StateFeed::Clock::time_point now) {
    const Value& moving = state.contains("tray") ? state["tray"].value("moving", Value()) : Value();
    if (!moving.is_object() || moving.value("stalled", false)) return std::nullopt;
    auto left = moving.value("duration_ms", 0LL) - moving.value("elapsed_ms", 0LL);
    return now + std::chrono::milliseconds(std::max(left, 0LL) + 1);
}

}  // namespace

StateFeed::StateFeed(int fixtures)
    : published_(static_cast<std::size_t>(fixtures)), nextReading_(static_cast<std::size_t>(fixtures)) {}

std::optional<StateFeed::Clock::time_point> StateFeed::changed(int fixture, Clock::time_point now,
                                                               const std::function<Value()>& readState) {
    auto index = static_cast<std::size_t>(fixture - 1);
    auto& next = nextReading_.at(index);
    if (next && now < *next) return next;
    next = now + shortestGap;
    Value state = readState();
    {
        std::lock_guard lock(mutex_);
        ++published_[index].version;
        published_[index].stateJson = jsonrpc::toJson(state);
    }
    news_.notify_all();
    auto end = moveEnd(state, now);
    return end ? std::optional(std::max(*end, *next)) : std::nullopt;
}

std::optional<std::vector<StateFeed::News>> StateFeed::waitForNews(std::vector<std::uint64_t>& seen, Clock::time_point until) {
    std::unique_lock lock(mutex_);
    seen.resize(published_.size(), 0);
    std::vector<News> news;
    auto collect = [&] {
        for (std::size_t i = 0; i < published_.size(); ++i) {
            if (published_[i].version == seen[i]) continue;
            seen[i] = published_[i].version;
            news.push_back({static_cast<int>(i + 1), published_[i].stateJson});
        }
        return closed_ || !news.empty();
    };
    news_.wait_until(lock, until, collect);
    if (closed_) return std::nullopt;
    return news;
}

void StateFeed::close() {
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
    }
    news_.notify_all();
}

}  // namespace kelvane::sim
