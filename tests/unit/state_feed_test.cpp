#include "state_feed.hpp"

#include <gtest/gtest.h>

using kelvane::Value;
using kelvane::sim::StateFeed;
using std::chrono::milliseconds;

// Virtual time: the feed is told the time, and asked for news that is already there.
TEST(StateFeed, ReadsAtMostTenTimesASecondAlwaysPublishesTheLastChangeAndWatchesAMoveToItsEnd) {
    StateFeed feed(2);
    const StateFeed::Clock::time_point start{};
    int reads = 0;
    Value state = {{"tray", {{"moving", nullptr}}}, {"n", 0}};
    auto read = [&] { ++reads; state["n"] = reads; return state; };
    std::vector<std::uint64_t> seen;
    auto news = [&] { return *feed.waitForNews(seen, start); };

    EXPECT_EQ(feed.changed(2, start, read), std::nullopt);
    EXPECT_EQ(feed.changed(2, start + milliseconds(40), read), start + milliseconds(100));
    EXPECT_EQ(reads, 1);
    ASSERT_EQ(news().size(), 1U);
    EXPECT_TRUE(news().empty());
    // Called back at the end of the gap, it publishes the change it held back.
    state["tray"]["moving"] = {{"elapsed_ms", 250}, {"duration_ms", 300}, {"stalled", false}};
    EXPECT_EQ(feed.changed(2, start + milliseconds(100), read), start + milliseconds(200));
    EXPECT_EQ(feed.changed(2, start + milliseconds(200), read), start + milliseconds(300));
    auto last = news();
    ASSERT_EQ(last.size(), 1U);
    EXPECT_EQ(last[0].fixture, 2);
    EXPECT_NE(last[0].stateJson.find("\"n\":3"), std::string::npos);
    state["tray"]["moving"]["stalled"] = true;  // a stalled move never ends by itself
    EXPECT_EQ(feed.changed(2, start + milliseconds(300), read), std::nullopt);

    feed.close();
    EXPECT_EQ(feed.waitForNews(seen, start + milliseconds(1000)), std::nullopt);
}
