#include "state_feed.hpp"

#include <gtest/gtest.h>

using kelvane::Value;
using kelvane::sim::StateFeed;
using std::chrono::milliseconds;

// Virtual time: the feed is told the time, and what it publishes is recorded.
TEST(StateFeed, ReadsAtMostTenTimesASecondAlwaysPublishesTheLastChangeAndWatchesAMoveToItsEnd) {
    std::vector<StateFeed::News> published;
    StateFeed feed(2, [&](const StateFeed::News& news) { published.push_back(news); });
    const StateFeed::Clock::time_point start{};
    int reads = 0;
    Value state = {{"tray", {{"moving", nullptr}}}, {"n", 0}};
    auto read = [&] {
        state["n"] = ++reads;
        return state;
    };

    EXPECT_TRUE(feed.lastPublished().empty());
    EXPECT_EQ(feed.changed(2, start, read), std::nullopt);
    EXPECT_EQ(feed.changed(2, start + milliseconds(40), read), start + milliseconds(100));
    EXPECT_EQ(std::pair(reads, published.size()), std::pair(1, std::size_t{1}));
    // Called back at the end of the gap, it publishes the change it held back.
    state["tray"]["moving"] = {{"elapsed_ms", 250}, {"duration_ms", 300}, {"stalled", false}};
    EXPECT_EQ(feed.changed(2, start + milliseconds(100), read), start + milliseconds(200));
    EXPECT_EQ(feed.changed(2, start + milliseconds(200), read), start + milliseconds(300));
    ASSERT_EQ(published.size(), 3U);
    EXPECT_EQ(published.back().fixture, 2);
    EXPECT_NE(published.back().stateJson.find("\"n\":3"), std::string::npos);
    state["tray"]["moving"]["stalled"] = true;  // a stalled move never ends by itself
    EXPECT_EQ(feed.changed(2, start + milliseconds(300), read), std::nullopt);

    // A stream opened now starts with the last state of each fixture that published one.
    auto last = feed.lastPublished();
    ASSERT_EQ(last.size(), 1U);
    EXPECT_EQ(std::tie(last[0].fixture, last[0].stateJson),
              std::tie(published.back().fixture, published.back().stateJson));
}
