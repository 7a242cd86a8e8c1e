#include "session_fixture.hpp"

#include "helpers/number_text.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

using kelvane::Value;

class Helpers : public ::testing::Test {
protected:
    kelvane::testing::SessionFixture fixture;
    std::shared_ptr<kelvane::FixtureControl> session = fixture.connect();
};

TEST_F(Helpers, HexTextHasTwoLowerCaseDigitsPerUtf8Byte) {
    EXPECT_EQ(session->hexStringFromString("A"), "41");
    EXPECT_EQ(session->hexStringFromString("\n"), "0a");
    EXPECT_EQ(session->hexStringFromString(""), "");
    EXPECT_EQ(session->hexStringFromString("°"), "c2b0");
}

TEST_F(Helpers, DecimalValuesFollowTheControllersCharacterTable) {
    EXPECT_EQ(session->decimalFromHexString("1A2b"), Value::array({26, 43}));
    EXPECT_EQ(fixture.log->lines(), std::vector<std::string>{"decimalStr: [26,43]"});
    // Characters outside 0-9, A-F are valued c-87, unchecked: 'G' gives -16.
    EXPECT_EQ(session->decimalFromHexString("0G"), Value::array({-16}));
    EXPECT_THROW(session->decimalFromHexString("414"), std::out_of_range);
}

TEST_F(Helpers, StringFromHexStopsAtZeroIgnoresOddTailAndRepeatsUnscannablePairs) {
    EXPECT_EQ(session->stringFromHexString("414"), "A");
    EXPECT_EQ(session->stringFromHexString("4F4B0D03000000"), "OK\r\x03");
    EXPECT_EQ(session->stringFromHexString("41zz42"), "AAB");
    EXPECT_EQ(session->stringFromHexString("0041"), "");
    EXPECT_THROW(session->stringFromHexString(""), std::out_of_range);
}

TEST_F(Helpers, RegexGroupsAreCaseInsensitiveMultilineAndNilWhenAbsent) {
    std::optional<kelvane::RpcError> error;
    EXPECT_EQ(session->findSubStringByRegexGroup("x\ntec temp: 25.31 c", "^TEC temp: (\\d+.\\d+) C",
                                                 1, &error),
              Value("25.31"));
    EXPECT_EQ(session->findSubStringByRegexGroup("Fixture3", "Fixture(\\d+)", 0, nullptr),
              Value("Fixture3"));
    EXPECT_TRUE(session->findSubStringByRegexGroup("no match", "Fixture(\\d+)", 1, nullptr).is_null());
    EXPECT_TRUE(session->findSubStringByRegexGroup("ab", "a(x)?b", 1, nullptr).is_null());
    EXPECT_FALSE(error.has_value());
    // A group index past the pattern's groups is the caller's range error, once something matched.
    EXPECT_THROW(session->findSubStringByRegexGroup("ab", "a(b)", 2, nullptr), std::out_of_range);
    EXPECT_THROW(session->findSubStringByRegexGroup("ab", "a(b)", -1, nullptr), std::out_of_range);
    EXPECT_TRUE(session->findSubStringByRegexGroup("xy", "a(b)", 7, nullptr).is_null());
    // A pattern that does not compile, and the empty pattern, give null and an error.
    for (const char* bad : {"a(", ""}) {
        error.reset();
        EXPECT_TRUE(session->findSubStringByRegexGroup("ab", bad, 0, &error).is_null()) << bad;
        EXPECT_TRUE(error.has_value()) << bad;
    }
}

TEST(PureFloat, WholeTextMustBeOneNumber) {
    for (const char* yes : {"1.5", " -2 ", "3e4", ".5", "7.", "+0.25E-3"}) {
        EXPECT_TRUE(kelvane::isPureFloatText(yes)) << yes;
    }
    for (const char* no : {"", " ", ".", "1.5V", "1 2", "e5", "0x10", "--1", "nan"}) {
        EXPECT_FALSE(kelvane::isPureFloatText(no)) << no;
    }
}
