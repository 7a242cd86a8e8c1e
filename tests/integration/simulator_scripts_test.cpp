// Scripted answers, as a client sees them: through the real transport, and on a raw socket where
// the transport would hide what arrived. (A delayed reply holding nobody up is shown in
// transport_concurrency_test.cpp, where it is also the client's concern.)
#include "simulator_test_support.hpp"

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;

const std::string fanSpeed(m::getFanSpeed);
const std::string fanSpeedRequest = jsonrpc::encodeRequest({41, fanSpeed, Value::array(), nullptr});

using SimulatorScriptsTest = SimulatorTest;

TEST_F(SimulatorScriptsTest, ReplyAndErrorScriptsOverrideTheModelForTheirTimesInQueueOrder) {
    script({{"method", fanSpeed}, {"action", "reply"}, {"reply", "first"}, {"times", 2}});
    script({{"method", fanSpeed}, {"action", "error"}, {"error", {{"code", 7}, {"message", "boom"}}}, {"times", 2}});
    EXPECT_EQ(call(fanSpeed, {1}), "first");
    EXPECT_EQ(call(fanSpeed, {1}), "first");
    auto [reply, error] = ask(fanSpeed, {1});
    EXPECT_TRUE(reply.is_null());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, 7);
    EXPECT_EQ(error->message, "boom");
    EXPECT_TRUE(client->call(fanSpeed, {1}, nullptr, nullptr).is_null()) << "no error slot is fine";
    EXPECT_EQ(call(fanSpeed, {1}), 0) << "scripts used up: the model answers again";

    script({{"method", fanSpeed}, {"reply", nullptr}});
    EXPECT_EQ(call(fanSpeed, {1}), nullptr) << "a null reply is a reply, not an error";
    EXPECT_EQ(call(fanSpeed, {1}), nullptr) << "without times a script stays";
    sim.control("sim.clear_scripts");
    EXPECT_EQ(call(fanSpeed, {1}), 0);
}

TEST_F(SimulatorScriptsTest, ReplyScriptWithoutValueLetsTheModelActAndNoReplySwallowsTheRequest) {
    script({{"method", m::magnetControl}, {"action", "reply"}, {"times", 1}});
    EXPECT_EQ(call(m::magnetControl, {"on"}), "done");
    EXPECT_EQ(sim.control("sim.state")["lock"], "on");

    script({{"method", m::magnetControl}, {"action", "no_reply"}, {"times", 1}});
    EXPECT_EQ(failure(m::magnetControl, {"off"}, {{"timeout_ms", 100}}), jsonrpc::timeoutError);
    EXPECT_EQ(sim.control("sim.state")["lock"], "on") << "a swallowed request does not act";
}

// The client's dropping of these frames is tested with the transport; here: what was sent.
TEST_F(SimulatorScriptsTest, BrokenRepliesArriveAsScripted) {
    script({{"method", fanSpeed}, {"action", "garbage"}, {"times", 1}});
    EXPECT_TRUE(Value::parse(rawExchange({fanSpeedRequest}, 1)[0], nullptr, false).is_discarded());

    script({{"method", fanSpeed}, {"action", "wrong_id"}, {"reply", 5}, {"times", 1}});
    auto misaddressed = jsonrpc::decodeReply(rawExchange({fanSpeedRequest}, 1)[0]);
    ASSERT_TRUE(misaddressed);
    EXPECT_NE(misaddressed->id, 41);
    EXPECT_EQ(misaddressed->result, 5);

    script({{"method", fanSpeed}, {"action", "oversize"}, {"times", 1}});
    std::string huge = rawExchange({fanSpeedRequest}, 1)[0];
    EXPECT_GT(huge.size(), std::size_t{1} << 20);
    auto oversized = jsonrpc::decodeReply(huge);
    ASSERT_TRUE(oversized) << "an oversize reply is still well formed";
    EXPECT_EQ(oversized->id, 41);

    // Raw text fills in the id and, only when asked for, the model's result (the model acts).
    script({{"method", m::magnetControl}, {"action", "raw"}, {"text", R"({"id":"{id}","x":{id}})"}, {"times", 1}});
    script({{"method", m::magnetControl}, {"action", "raw"}, {"text", "[{result},{result}]"}, {"times", 1}});
    std::string lockOn = jsonrpc::encodeRequest({42, std::string(m::magnetControl), {"on"}, nullptr});
    EXPECT_EQ(rawExchange({lockOn}, 1)[0], R"({"id":"42","x":42})");
    EXPECT_EQ(sim.control("sim.state")["lock"], "off");
    EXPECT_EQ(rawExchange({lockOn}, 1)[0], R"(["done","done"])");
    EXPECT_EQ(sim.control("sim.state")["lock"], "on");
    EXPECT_EQ(sim.control("sim.journal").back()["script"], "raw") << "the journal tells scripted calls";
}

TEST_F(SimulatorScriptsTest, MalformedScriptIsRejectedAndNoneOfTheBatchIsAdded) {
    std::optional<RpcError> error;
    Value batch = {{{"method", fanSpeed}, {"reply", 1}}, {{"method", fanSpeed}, {"action", "explode"}}};
    sim.control("sim.script", Value::array({batch}), &error);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, jsonrpc::invalidParamsError);
    EXPECT_NE(error->message.find("script 2"), std::string::npos) << error->message;
    for (Value bad : {Value{{"method", fanSpeed}, {"action", "error"}}, Value{{"method", fanSpeed}, {"times", 0}},
                      Value{{"method", fanSpeed}, {"delay", 5}}, Value{{"reply", 1}},
                      Value{{"method", fanSpeed}, {"action", "raw"}}}) {
        sim.control("sim.script", Value::array({bad}), &error);
        EXPECT_TRUE(error && error->message.find("no script given") == std::string::npos) << bad.dump();
    }
    EXPECT_EQ(call(fanSpeed, {1}), 0);
}

}  // namespace
}  // namespace kelvane::testing
