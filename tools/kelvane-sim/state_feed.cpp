#include "state_feed.hpp"

#include <kelvane/protocol/json_rpc.hpp>

#include <algorithm>
#include <utility>

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

StateFeed::StateFeed(int fixtures, std::function<void(const News&)> publish)
    : publish_(std::move(publish)),
      published_(static_cast<std::size_t>(fixtures)),
      nextReading_(static_cast<std::size_t>(fixtures)) {}

std::optional<StateFeed::Clock::time_point> StateFeed::changed(int fixture, Clock::time_point now,
                                                               const std::function<Value()>& readState) {
    auto index = static_cast<std::size_t>(fixture - 1);
    auto& next = nextReading_.at(index);
    if (next && now < *next) return next;
    next = now + shortestGap;
    Value state = readState();
    News news{fixture, jsonrpc::toJson(state)};
    {
        std::lock_guard lock(mutex_);
        published_[index] = news.stateJson;
    }
    publish_(news);
    auto end = moveEnd(state, now);
    return end ? std::optional(std::max(*end, *next)) : std::nullopt;
}

std::vector<StateFeed::News> StateFeed::lastPublished() const {
    std::lock_guard lock(mutex_);
    std::vector<News> last;
    for (std::size_t i = 0; i < published_.size(); ++i) {
        if (!published_[i].empty()) last.push_back({static_cast<int>(i + 1), published_[i]});
    }
    return last;
}

}  // namespace kelvane::sim
