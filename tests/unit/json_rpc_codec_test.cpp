#include <kelvane/protocol/json_rpc.hpp>
#include <kelvane/protocol/methods.hpp>

#include "session_fixture.hpp"

#include <gtest/gtest.h>

namespace kelvane::jsonrpc {
namespace {

Value sent(const Request& request) { return Value::parse(encodeRequest(request)); }

TEST(JsonRpcRequest, CarriesParamsAlwaysKwargsOnlyWhenGivenAndSurvivesBadInput) {
    EXPECT_EQ(sent({7, "server.mode", Value::array(), nullptr}),
              Value::parse(R"({"jsonrpc":"2.0","id":7,"method":"server.mode","params":[]})"));
    Value withKwargs = sent({8, "vantrel.fixture_io_set", Value::parse("[[[10,0]]]"), Value{{"timeout_ms", 20000}}});
    EXPECT_EQ(withKwargs["params"], Value::parse("[[[10,0]]]"));
    EXPECT_EQ(withKwargs["kwargs"], Value::parse(R"({"timeout_ms":20000})"));

    // Params that are not an array, or text that is not UTF-8, still give a valid request.
    EXPECT_EQ(sent({9, "server.mode", "oops", nullptr})["params"], Value::array());
    auto request =
        decodeRequest(encodeRequest({1, "vantrel.led_control", Value::array({"UUT1", "\xff\xfe"}), nullptr}));
    ASSERT_TRUE(request);
    EXPECT_EQ(Value::array({request->method, request->params[0]}), Value::array({"vantrel.led_control", "UUT1"}));
}

TEST(JsonRpcReply, ResultNullResultAndErrorsOfAnyShapeAreToldApart) {
    auto text = decodeReply(encodeResult(3, "in_done"));
    ASSERT_TRUE(text);
    EXPECT_EQ(std::tuple(text->id, text->result, text->error.has_value()), std::tuple(3, Value("in_done"), false));
    // A null result, or a null error beside a result, is a valid reply without an error.
    for (const char* ok : {R"({"id":4,"result":null})", R"({"id":6,"result":"done","error":null})"}) {
        auto reply = decodeReply(ok);
        ASSERT_TRUE(reply) << ok;
        EXPECT_FALSE(reply->error) << ok;
    }
    using Case = std::tuple<std::string, int, std::string>;  // the reply, its error's code and message
    for (const auto& [text, code, message] :
         {Case{encodeError(5, {-32601, "no such method"}), -32601, "no such method"},
          Case{R"({"id":1,"error":{"code":"x","message":42}})", 0, "42"},
          Case{R"({"id":1,"error":{"code":-1}})", -1, ""},
          // Codes beyond 32 bits are clamped, never wrapped to another code.
          Case{R"({"id":1,"error":{"code":4294967297}})", 2147483647, ""},
          Case{R"({"id":1,"error":{"code":18446744073709551615}})", 2147483647, ""},
          Case{R"({"id":1,"error":{"code":-4294967297}})", -2147483648, ""},
          Case{R"({"jsonrpc":"2.0","id":2,"error":{"code":1e999,"message":"hot"}})", 0, "hot"}}) {
        auto reply = decodeReply(text);
        ASSERT_TRUE(reply && reply->error) << text;
        EXPECT_EQ(std::tuple(reply->error->code, reply->error->message, reply->result),
                  std::tuple(code, message, Value()))
            << text;
    }
}

TEST(JsonRpcReply, MalformedMessagesAreRefusedNotGuessed) {
    for (const char* text :
         {"", "not json", "[1,2]", "\"done\"", R"({"result":"done"})", R"({"id":null,"result":"done"})",
          R"({"id":"1","result":"done"})", R"({"id":1.5,"result":"done"})", R"({"id":1e30,"result":"done"})",
          R"({"id":1})", R"({"id":1,"result":"do)",
          // Another protocol version, or an error that is no error object.
          R"({"jsonrpc":"1.0","id":1,"result":"done"})", R"({"jsonrpc":2.0,"id":1,"result":"done"})",
          R"({"id":1,"error":"board busy"})", R"({"id":1,"error":7})", R"({"id":1,"error":[],"result":"done"})"}) {
        EXPECT_FALSE(decodeReply(text)) << text;
    }
}

TEST(JsonRpcReply, NumbersBeyondDoubleRangeReadAsTheirLiteralTextAndTheRestOfTheReplyIsKept) {
    using Case = std::pair<std::string, Value>;  // the reply and its result
    for (const auto& [text, result] :
         {Case{R"({"id":1,"result":1e999})", "1e999"},
          Case{R"({"id":1,"result":[-1.5E+400,2.5,"1e999"]})", Value::parse(R"(["-1.5E+400",2.5,"1e999"])")},
          Case{R"({"id":1,"result":{"a":)" + std::string(400, '9') + "}}", Value{{"a", std::string(400, '9')}}},
          Case{R"({"id":1,"result":1.8e308})", "1.8e308"},
          Case{R"({"id":1,"result":1e99999999999999999999})", "1e99999999999999999999"},
          // In range, however written, and underflow, are numbers.
          Case{R"({"id":1,"result":[1.7e308,0.0001e312,1e-999,0e999999],"x":1e999})",
               Value::parse("[1.7e308,1e308,0,0]")}}) {
        auto reply = decodeReply(text);
        ASSERT_TRUE(reply) << text;
        EXPECT_EQ(reply->result, result) << text;
    }
}

TEST(JsonRpcReply, DeeplyNestedFrameIsRefusedWithoutExhaustingTheStack) {
    std::string deep = std::string(200000, '[') + std::string(200000, ']') + "}";
    EXPECT_FALSE(decodeReply(R"({"id":1,"result":)" + deep));
    EXPECT_FALSE(decodeRequest(R"({"id":1,"method":"m","params":)" + deep));

    // Brackets in texts, also after an escaped quote or backslash, are not nesting; nesting is.
    const std::string brackets(1000, '[');
    auto reply = decodeReply(R"({"id":2,"result":["\")" + brackets + R"(","\\",")" + brackets + R"("]})");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->result, Value::array({"\"" + brackets, "\\", brackets}));
    EXPECT_TRUE(decodeReply(R"({"id":3,"result":{"data":[[[1,2,3]]]}})"));
}

// The protocol document lists every controller method the library calls, so a controller
// written from the document alone answers everything the library may ask.
TEST(JsonRpcMethodTable, EveryMethodTheLibraryCallsIsDocumentedForControllerWriters) {
    const std::string document = kelvane::testing::fileText(std::string(KELVANE_SOURCE_DIR) + "/docs/protocol.md");
    ASSERT_FALSE(document.empty()) << "docs/protocol.md is missing";
    for (std::string_view method : methods::all) {
        EXPECT_NE(document.find("`" + std::string(method) + "`"), std::string::npos)
            << method << " is not in docs/protocol.md";
    }
}

}  // namespace
}  // namespace kelvane::jsonrpc
