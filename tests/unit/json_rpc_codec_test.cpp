// The JSON-RPC messages as text: what a controller receives and what the client accepts back.
#include "rpc/json_rpc.hpp"

#include <gtest/gtest.h>

#include <string>

namespace kelvane::jsonrpc {
namespace {

Value sent(const Request& request) { return Value::parse(encodeRequest(request)); }

TEST(JsonRpcRequest, CarriesParamsAlwaysAndKwargsOnlyWhenGiven) {
    Value plain = sent({7, "server.mode", Value::array(), nullptr});
    EXPECT_EQ(plain,
              Value::parse(R"({"jsonrpc":"2.0","id":7,"method":"server.mode","params":[]})"));

    Value ioList = Value::array({Value::array({Value::array({10, 0})})});
    Value withKwargs = sent({8, "vantrel.fixture_io_set", ioList, Value{{"timeout_ms", 20000}}});
    EXPECT_EQ(withKwargs["params"], Value::parse("[[[10,0]]]"));
    EXPECT_EQ(withKwargs["kwargs"], Value::parse(R"({"timeout_ms":20000})"));
    EXPECT_TRUE(withKwargs["kwargs"]["timeout_ms"].is_number_integer());

    // A caller that passes something other than an array still sends a valid request.
    EXPECT_EQ(sent({9, "server.mode", "oops", nullptr})["params"], Value::array());
}

TEST(JsonRpcRequest, TextThatIsNotUtf8IsRepairedInsteadOfThrowing) {
    std::string text;
    ASSERT_NO_THROW(text = encodeRequest({1, "vantrel.led_control",
                                          Value::array({"UUT1", "\xff\xfe"}), nullptr}));
    auto request = decodeRequest(text);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->id, 1);
    EXPECT_EQ(request->method, "vantrel.led_control");
    EXPECT_EQ(request->params[0], "UUT1");
    EXPECT_TRUE(request->kwargs.is_null());
}

TEST(JsonRpcReply, ResultNullResultAndErrorAreToldApart) {
    auto text = decodeReply(encodeResult(3, "in_done"));
    ASSERT_TRUE(text);
    EXPECT_EQ(text->id, 3);
    EXPECT_EQ(text->result, "in_done");
    EXPECT_FALSE(text->error);

    // A null result is a valid reply: no value and no error, not a malformed message.
    auto null = decodeReply(R"({"jsonrpc":"2.0","id":4,"result":null})");
    ASSERT_TRUE(null);
    EXPECT_TRUE(null->result.is_null());
    EXPECT_FALSE(null->error);

    auto error = decodeReply(encodeError(5, {-32601, "no such method"}));
    ASSERT_TRUE(error && error->error);
    EXPECT_EQ(error->error->code, -32601);
    EXPECT_EQ(error->error->message, "no such method");
    EXPECT_TRUE(error->result.is_null());

    // Some servers send both members with the unused one null.
    auto both = decodeReply(R"({"jsonrpc":"2.0","id":6,"result":"done","error":null})");
    ASSERT_TRUE(both);
    EXPECT_EQ(both->result, "done");
    EXPECT_FALSE(both->error);
}

TEST(JsonRpcReply, OddlyShapedErrorsStillBecomeErrors) {
    auto textError = decodeReply(R"({"id":1,"error":"board busy"})");
    ASSERT_TRUE(textError && textError->error);
    EXPECT_EQ(textError->error->message, "board busy");

    auto badCode = decodeReply(R"({"id":1,"error":{"code":"x","message":42}})");
    ASSERT_TRUE(badCode && badCode->error);
    EXPECT_EQ(badCode->error->code, 0);
    EXPECT_EQ(badCode->error->message, "42");

    auto noMessage = decodeReply(R"({"id":1,"error":{"code":-1}})");
    ASSERT_TRUE(noMessage && noMessage->error);
    EXPECT_EQ(noMessage->error->message, "");
}

TEST(JsonRpcReply, MalformedMessagesAreRefusedNotGuessed) {
    for (const char* text : {"", "not json", "[1,2]", "\"done\"", R"({"result":"done"})",
                             R"({"id":null,"result":"done"})", R"({"id":"1","result":"done"})",
                             R"({"id":1.5,"result":"done"})", R"({"id":1e30,"result":"done"})",
                             R"({"id":1})", R"({"id":1,"result":"do)"}) {
        EXPECT_FALSE(decodeReply(text)) << text;
    }
}

TEST(JsonRpcReply, DeeplyNestedFrameIsRefusedWithoutExhaustingTheStack) {
    std::string deep = R"({"id":1,"result":)" + std::string(200000, '[') +
                       std::string(200000, ']') + "}";
    EXPECT_FALSE(decodeReply(deep));
    EXPECT_FALSE(decodeRequest(R"({"id":1,"method":"m","params":)" + std::string(200000, '[') +
                               std::string(200000, ']') + "}"));

    // Brackets inside texts are not nesting, and ordinary nesting is accepted.
    std::string bracketsInText = R"({"id":2,"result":")" + std::string(1000, '[') + R"(\"["})";
    auto reply = decodeReply(bracketsInText);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->result.get<std::string>().size(), 1002u);
    EXPECT_TRUE(decodeReply(R"({"id":3,"result":{"data":[[[1,2,3]]]}})"));
}

}  // namespace
}  // namespace kelvane::jsonrpc
