// Scripted answers, as a client sees them: through the real transport, and on a raw socket where
// the transport would hide what arrived.
#include "simulator_test_support.hpp"

#include "rpc/methods.hpp"

#include <zmq.hpp>
#include <zmq_addon.hpp>

#include <future>

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;

const std::string fanSpeed(m::getFanSpeed);
const Value shortWait = {{"timeout_ms", 100}};

class SimulatorScriptsTest : public SimulatorTest {
protected:
    void script(Value description) {
        EXPECT_EQ(sim.control("sim.script", Value::array({std::move(description)})), "done");
    }

    // The raw reply frame to one request, bypassing the client's checks.
    std::string rawReply(const std::string& method) {
        zmq::context_t context;
        zmq::socket_t dealer(context, zmq::socket_type::dealer);
        dealer.set(zmq::sockopt::linger, 0);
        dealer.set(zmq::sockopt::rcvtimeo, 5000);
        dealer.connect(sim.endpoint());
        std::string request = jsonrpc::encodeRequest({41, method, Value::array(), nullptr});
        dealer.send(zmq::message_t(), zmq::send_flags::sndmore);
        dealer.send(zmq::buffer(request), zmq::send_flags::none);
        std::vector<zmq::message_t> parts;
        EXPECT_TRUE(zmq::recv_multipart(dealer, std::back_inserter(parts)));
        EXPECT_EQ(parts.size(), 2u);
        return parts.empty() ? "" : parts.back().to_string();
    }
};

TEST_F(SimulatorScriptsTest, ReplyAndErrorScriptsOverrideTheModelForTheirTimesInQueueOrder) {
    script({{"method", fanSpeed}, {"action", "reply"}, {"reply", "first"}, {"times", 2}});
    script({{"method", fanSpeed}, {"action", "error"}, {"error", {{"code", 7}, {"message", "boom"}}}, {"times", 1}});
    EXPECT_EQ(call(fanSpeed, {1}), "first");
    EXPECT_EQ(call(fanSpeed, {1}), "first");
    RpcError error = failure(fanSpeed, {1});
    EXPECT_EQ(error.code, 7);
    EXPECT_EQ(error.message, "boom");
    EXPECT_EQ(call(fanSpeed, {1}), 0) << "scripts used up: the model answers again";

    script({{"method", fanSpeed}, {"reply", nullptr}});
    EXPECT_EQ(call(fanSpeed, {1}), nullptr) << "a null reply is a reply";
    EXPECT_EQ(call(fanSpeed, {1}), nullptr) << "without times a script stays";
    sim.control("sim.clear_scripts");
    EXPECT_EQ(call(fanSpeed, {1}), 0);
}

TEST_F(SimulatorScriptsTest, ReplyScriptWithoutValueLetsTheModelAnswerAndAct) {
    script({{"method", std::string(m::magnetControl)}, {"action", "reply"}, {"times", 1}});
    EXPECT_EQ(call(std::string(m::magnetControl), {"on"}), "done");
    EXPECT_EQ(sim.control("sim.state")["lock"], "on");

    script({{"method", std::string(m::magnetControl)}, {"action", "no_reply"}, {"times", 1}});
    EXPECT_EQ(failure(std::string(m::magnetControl), {"off"}, shortWait).code, jsonrpc::timeoutError);
    EXPECT_EQ(sim.control("sim.state")["lock"], "on") << "a swallowed request does not act";
}

TEST_F(SimulatorScriptsTest, BrokenRepliesArriveAsScriptedAndTheClientTimesOutOnThem) {
    script({{"method", fanSpeed}, {"action", "garbage"}, {"times", 2}});
    EXPECT_TRUE(Value::parse(rawReply(fanSpeed), nullptr, false).is_discarded());
    EXPECT_EQ(failure(fanSpeed, {1}, shortWait).code, jsonrpc::timeoutError);

    script({{"method", fanSpeed}, {"action", "wrong_id"}, {"reply", 5}, {"times", 2}});
    auto misaddressed = jsonrpc::decodeReply(rawReply(fanSpeed));
    ASSERT_TRUE(misaddressed);
    EXPECT_NE(misaddressed->id, 41);
    EXPECT_EQ(misaddressed->result, 5);
    EXPECT_EQ(failure(fanSpeed, {1}, shortWait).code, jsonrpc::timeoutError);

    script({{"method", fanSpeed}, {"action", "oversize"}, {"times", 2}});
    std::string huge = rawReply(fanSpeed);
    EXPECT_GT(huge.size(), std::size_t{1} << 20);
    auto oversized = jsonrpc::decodeReply(huge);
    ASSERT_TRUE(oversized) << "an oversize reply is still well formed";
    EXPECT_EQ(oversized->id, 41);
    EXPECT_EQ(failure(fanSpeed, {1}, shortWait).code, jsonrpc::timeoutError);
}

TEST_F(SimulatorScriptsTest, DelayedReplyDoesNotHoldUpOtherRequests) {
    script({{"method", fanSpeed}, {"reply", "late"}, {"delay_ms", 1500}, {"times", 1}});
    auto slowClient = RPCClientWrapper::initWithIP("127.0.0.1", sim.port());
    std::atomic<bool> quickAnswered{false};
    auto slow = std::async(std::launch::async, [&] {
        std::optional<RpcError> error;
        Value reply = slowClient->call(fanSpeed, {1}, nullptr, &error);
        return std::pair{reply, quickAnswered.load()};
    });
    ASSERT_TRUE(eventually([&] { return sim.control("sim.journal").size() == 1; }));
    EXPECT_EQ(call(std::string(m::serverMode)), "normal");
    quickAnswered = true;
    auto [reply, answeredAfterQuick] = slow.get();
    EXPECT_EQ(reply, "late");
    EXPECT_TRUE(answeredAfterQuick);
}

TEST_F(SimulatorScriptsTest, MalformedScriptIsRejectedAndNoneOfTheBatchIsAdded) {
    std::optional<RpcError> error;
    Value batch = {{{"method", fanSpeed}, {"reply", 1}},
                   {{"method", fanSpeed}, {"action", "explode"}}};
    sim.control("sim.script", Value::array({batch}), &error);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, jsonrpc::invalidParamsError);
    EXPECT_NE(error->message.find("script 2"), std::string::npos) << error->message;
    for (Value bad : {Value{{"method", fanSpeed}, {"action", "error"}}, Value{{"method", fanSpeed}, {"times", 0}},
                      Value{{"method", fanSpeed}, {"delay", 5}}, Value{{"reply", 1}}}) {
        sim.control("sim.script", Value::array({bad}), &error);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->message.find("no script given"), std::string::npos);
    }
    EXPECT_EQ(call(fanSpeed, {1}), 0);
}

}  // namespace
}  // namespace kelvane::testing
