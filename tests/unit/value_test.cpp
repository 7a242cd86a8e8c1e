#include <kelvane/Value.hpp>

#include <gtest/gtest.h>

using kelvane::Value;

TEST(Value, PrintsRepliesTheWayLogLinesShowThem) {
    EXPECT_EQ(kelvane::describe(nullptr), "(null)");
    EXPECT_EQ(kelvane::describe("up_done"), "up_done");
    EXPECT_EQ(kelvane::describe(42), "42");
    EXPECT_EQ(kelvane::describe(2.0), "2");
    EXPECT_EQ(kelvane::describe(1.25), "1.25");
    EXPECT_EQ(kelvane::describe(true), "1");
    EXPECT_EQ(kelvane::describe(Value::array({10, 0})), "[10,0]");
}

TEST(Value, IntegerValueReadsLeadingDigitsAndTreatsEverythingElseAsZero) {
    EXPECT_EQ(kelvane::integerValue("1"), 1);
    EXPECT_EQ(kelvane::integerValue("  -12abc"), -12);
    EXPECT_EQ(kelvane::integerValue("abc"), 0);
    EXPECT_EQ(kelvane::integerValue(nullptr), 0);
    EXPECT_EQ(kelvane::integerValue(2.9), 2);
    EXPECT_EQ(kelvane::integerValue(Value::array({1})), 0);
    EXPECT_EQ(kelvane::integerValue("99999999999999999999999"), LLONG_MAX);
    EXPECT_EQ(kelvane::integerValue(1e300), LLONG_MAX);
}

TEST(Value, OnlyTheNumberOneIsActiveNotTheTextOne) {
    EXPECT_TRUE(kelvane::isNumberOne(1));
    EXPECT_TRUE(kelvane::isNumberOne(1.0));
    EXPECT_FALSE(kelvane::isNumberOne("1"));
    EXPECT_FALSE(kelvane::isNumberOne(2));
    EXPECT_FALSE(kelvane::isNumberOne(nullptr));
}

TEST(Value, ExactTextAndSubstringTestsDiffer) {
    EXPECT_TRUE(kelvane::isText("up_done", "up_done"));
    EXPECT_FALSE(kelvane::isText("up_done\r", "up_done"));
    EXPECT_FALSE(kelvane::isText(nullptr, "(null)"));
    EXPECT_TRUE(kelvane::describedContains("not done", "done"));
    EXPECT_FALSE(kelvane::describedContains("DONE", "done"));
    EXPECT_TRUE(kelvane::describedContains(nullptr, "null"));
}

TEST(Value, UpperCasingIsUnicodeAware) {
    EXPECT_EQ(kelvane::upperCased("blue"), "BLUE");
    EXPECT_EQ(kelvane::upperCased("straße"), "STRASSE");
    EXPECT_EQ(kelvane::upperCased("é"), "É");
}
