#include "session_fixture.hpp"

#include "helpers/number_text.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>

using kelvane::Value;

class Helpers : public ::testing::Test {
protected:
    kelvane::testing::SessionFixture fixture;
    std::shared_ptr<kelvane::FixtureControl> session = fixture.connect();
};

TEST_F(Helpers, HexTextDecimalValuesAndTextFromHexFollowTheControllersTable) {
    EXPECT_EQ(session->hexStringFromString("A\n°") + session->hexStringFromString(""), "410ac2b0");
    EXPECT_EQ(session->decimalFromHexString("1A2b"), Value::array({26, 43}));
    EXPECT_EQ(fixture.log->lines(), std::vector<std::string>{"decimalStr: (\n    26,\n    43\n)"});
    // Characters outside 0-9, A-F are valued c-87, unchecked: 'G' gives -16.
    EXPECT_EQ(session->decimalFromHexString("0G"), Value::array({-16}));
    EXPECT_THROW(session->decimalFromHexString("414"), std::out_of_range);

    // Text from hex stops at a zero, ignores an odd tail and repeats an unscannable pair's byte.
    EXPECT_EQ(session->stringFromHexString("414"), "A");
    EXPECT_EQ(session->stringFromHexString("4F4B0D03000000"), "OK\r\x03");
    EXPECT_EQ(session->stringFromHexString("41zz42"), "AAB");
    EXPECT_EQ(session->stringFromHexString("0041"), "");
    EXPECT_THROW(session->stringFromHexString(""), std::out_of_range);
}

TEST_F(Helpers, RegexGroupsAreCaseInsensitiveMultilineAndNilWhenAbsent) {
    std::optional<kelvane::RpcError> error;
    EXPECT_EQ(session->findSubStringByRegexGroup("x\ntec temp: 25.31 c", "^TEC temp: (\\d+.\\d+) C", 1, &error),
              Value("25.31"));
    EXPECT_EQ(session->findSubStringByRegexGroup("Fixture3", "Fixture(\\d+)", 0, nullptr), Value("Fixture3"));
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
    for (const char* yes : {"1.5", " -2 ", "3e4", ".5", "7.", "+0.25E-3"})
        EXPECT_TRUE(kelvane::isPureFloatText(yes)) << yes;
    for (const char* no : {"", " ", ".", "1.5V", "1 2", "e5", "0x10", "--1", "nan", "1e", "2E+"})
        EXPECT_FALSE(kelvane::isPureFloatText(no)) << no;
}

TEST(Value, PrintsRepliesTheWayLogLinesShowThem) {
    std::string shown;
    for (Value reply :
         {Value(), Value("up_done"), Value(42), Value(2.0), Value(1.25), Value(true), Value::array({10, 0})})
        shown += kelvane::describe(reply) + " ";
    EXPECT_EQ(shown, "(null) up_done 42 2 1.25 1 (\n    10,\n    0\n) ");

    // Collections in the property-list layout (nested ones: the CAN and session tests), where
    // only ASCII words stay bare and keys follow their UTF-16 units (U+1F600 before U+FF5E).
    EXPECT_EQ(kelvane::describe(Value::parse("[[], {}]")), "(\n        (\n    ),\n        {\n    }\n)");
    const Value words = Value::parse(R"([-1, 2.5, null, "Slot1_TecTempThread", 7805, false, "NO", "", "127.0.0.20",
        "a\\b\"", "\u0007\b\t\n\u000b\f", "x\u0000y\r\u0001", "\u00e9\ud83d\ude00"])");
    EXPECT_EQ(
        kelvane::describe(words),
        "(\n    \"-1\",\n    \"2.5\",\n    \"<null>\",\n    \"Slot1_TecTempThread\",\n    7805,\n    0,\n    NO,\n"
        "    \"\",\n    \"127.0.0.20\",\n    \"a\\\\b\\\"\",\n    \"\\a\\b\\t\\n\\v\\f\",\n    \"xy\r\x01\",\n"
        "    \"\\U00e9\\Ud83d\\Ude00\"\n)");
    EXPECT_EQ(kelvane::describe(Value{{"b", 1}, {"B", true}, {"a", "x"}, {"\uFF5E", 4}, {"\U0001F600", 5}}),
              "{\n    B = 1;\n    a = x;\n    b = 1;\n    \"\\Ud83d\\Ude00\" = 5;\n    \"\\Uff5e\" = 4;\n}");
}

// Only the number one is active, not the text "1"; exact text and substring tests differ.
TEST(Value, IntegerValueNumberOneExactTextAndSubstringTests) {
    std::vector<long long> values;
    for (Value v : {Value("1"), Value("  -12abc"), Value("abc"), Value(), Value(2.9), Value::array({1}),
                    Value("99999999999999999999999"), Value(1e300)})
        values.push_back(kelvane::integerValue(v));
    EXPECT_EQ(values, (std::vector<long long>{1, -12, 0, 0, 2, 0, LLONG_MAX, LLONG_MAX}));
    EXPECT_TRUE(kelvane::isNumberOne(1) && kelvane::isNumberOne(1.0));
    EXPECT_FALSE(kelvane::isNumberOne("1") || kelvane::isNumberOne(2) || kelvane::isNumberOne(nullptr));
    EXPECT_TRUE(kelvane::isText("up_done", "up_done"));
    EXPECT_FALSE(kelvane::isText("up_done\r", "up_done") || kelvane::isText(nullptr, "(null)"));
    EXPECT_TRUE(kelvane::describedContains("not done", "done") && kelvane::describedContains(nullptr, "null") &&
                kelvane::describedContains(Value{{"state", Value::array({"in_done"})}}, "done"));
    EXPECT_FALSE(kelvane::describedContains("DONE", "done"));
    EXPECT_EQ(kelvane::upperCased("blue straße é"), "BLUE STRASSE É");
}
