// What RPCClientWrapper makes of each kind of answer a controller can give: a result, a null
// result, an error, silence, a late reply, and frames it must drop. Real sockets, kelvane-sim.
#include "simulator_test_support.hpp"

#include "rpc/methods.hpp"

#include <limits>

namespace kelvane::testing {
namespace {

using std::chrono::milliseconds;
using Stopwatch = std::chrono::steady_clock;

const std::string fanSpeed(methods::getFanSpeed);
const std::string serverMode(methods::serverMode);
const Value shortWait = {{"timeout_ms", 100}};

class TransportRepliesTest : public SimulatorTest {
protected:
    void script(Value description) {
        EXPECT_EQ(sim.control("sim.script", Value::array({std::move(description)})), "done");
    }

    struct Outcome {
        Value reply;
        std::optional<RpcError> error;
        milliseconds took;
    };
    Outcome timedCall(const std::string& method, const Value& kwargs = nullptr) {
        auto start = Stopwatch::now();
        Outcome outcome;
        outcome.reply = client->call(method, Value::array({1}), kwargs, &outcome.error);
        outcome.took = std::chrono::duration_cast<milliseconds>(Stopwatch::now() - start);
        return outcome;
    }
};

TEST_F(TransportRepliesTest, ResultNullResultAndErrorReachTheCallerAsSent) {
    script({{"method", fanSpeed}, {"reply", "in_done"}, {"times", 1}});
    script({{"method", fanSpeed}, {"reply", nullptr}, {"times", 1}});
    script({{"method", fanSpeed},
            {"action", "error"},
            {"error", {{"code", 7}, {"message", "boom"}}},
            {"times", 2}});

    EXPECT_EQ(call(fanSpeed, {1}), "in_done");

    auto null = timedCall(fanSpeed);
    EXPECT_TRUE(null.reply.is_null());
    EXPECT_FALSE(null.error) << "a null result is no reply, but not an error either";

    auto error = timedCall(fanSpeed);
    EXPECT_TRUE(error.reply.is_null());
    ASSERT_TRUE(error.error);
    EXPECT_EQ(error.error->code, 7);
    EXPECT_EQ(error.error->message, "boom");

    EXPECT_TRUE(client->call(fanSpeed, {1}, nullptr, nullptr).is_null()) << "no error slot is fine";
    EXPECT_EQ(call(fanSpeed, {1}), 0) << "scripts used up: the controller answers again";
}

TEST_F(TransportRepliesTest, SilentControllerGivesTimeoutErrorAfterTimeoutMsPlusMargin) {
    script({{"method", fanSpeed}, {"action", "no_reply"}, {"times", 1}});
    auto silent = timedCall(fanSpeed, shortWait);
    ASSERT_TRUE(silent.error);
    EXPECT_EQ(silent.error->code, jsonrpc::timeoutError);
    EXPECT_TRUE(silent.reply.is_null());
    EXPECT_GE(silent.took, milliseconds(600)) << "timeout_ms 100 plus the 500 ms margin";
    EXPECT_LT(silent.took, milliseconds(3000));

    // The margin lets the controller's own answer arrive after timeout_ms has passed.
    script({{"method", fanSpeed}, {"reply", "slow but in time"}, {"delay_ms", 300}, {"times", 1}});
    EXPECT_EQ(timedCall(fanSpeed, {{"timeout_ms", 0}}).reply, "slow but in time");
}

TEST_F(TransportRepliesTest, OddTimeoutMsValuesNeitherOverflowNorLoseTheReply) {
    for (Value timeout : {Value(std::numeric_limits<std::int64_t>::max()), Value(-5), Value(1.5),
                          Value("soon"), Value(nullptr)}) {
        auto answered = timedCall(fanSpeed, {{"timeout_ms", timeout}});
        EXPECT_FALSE(answered.error) << describe(timeout) << ": " << answered.error->text();
        EXPECT_EQ(answered.reply, 0) << describe(timeout);
    }
}

TEST_F(TransportRepliesTest, CallWithoutTimeoutMsWaitsTheDefaultThreeSecondsNotForever) {
    script({{"method", serverMode}, {"action", "no_reply"}, {"times", 1}});
    auto silent = timedCall(serverMode);
    ASSERT_TRUE(silent.error);
    EXPECT_EQ(silent.error->code, jsonrpc::timeoutError);
    EXPECT_GE(silent.took, milliseconds(3000));
    EXPECT_LT(silent.took, milliseconds(6000));
}

TEST_F(TransportRepliesTest, LateReplyIsDroppedAndNeverHandedToTheNextCall) {
    // The first reply comes 800 ms after its request, while the second call is waiting.
    script({{"method", fanSpeed}, {"reply", "late"}, {"delay_ms", 800}, {"times", 1}});
    script({{"method", fanSpeed}, {"reply", "own"}, {"delay_ms", 500}, {"times", 1}});
    auto first = timedCall(fanSpeed, shortWait);
    ASSERT_TRUE(first.error);
    EXPECT_EQ(first.error->code, jsonrpc::timeoutError);

    auto second = timedCall(fanSpeed, {{"timeout_ms", 2000}});
    EXPECT_FALSE(second.error);
    EXPECT_EQ(second.reply, "own");
    EXPECT_EQ(call(fanSpeed, {1}), 0);
}

TEST_F(TransportRepliesTest, GarbageMisaddressedAndOversizeFramesAreDroppedAndTheNextCallWorks) {
    for (const char* action : {"garbage", "wrong_id", "oversize"}) {
        SCOPED_TRACE(action);
        script({{"method", fanSpeed}, {"action", action}, {"reply", "not for you"}, {"times", 1}});
        auto dropped = timedCall(fanSpeed, shortWait);
        ASSERT_TRUE(dropped.error);
        EXPECT_EQ(dropped.error->code, jsonrpc::timeoutError);
        EXPECT_TRUE(dropped.reply.is_null());
        EXPECT_EQ(call(fanSpeed, {1}), 0);
    }
}

TEST_F(TransportRepliesTest, ReplyOfExactlyTheLimitIsAcceptedOneByteMoreIsDropped) {
    constexpr long long limit = 1 << 20;
    script({{"method", fanSpeed}, {"action", "oversize"}, {"bytes", limit}, {"times", 1}});
    auto atLimit = timedCall(fanSpeed, {{"timeout_ms", 2000}});
    ASSERT_FALSE(atLimit.error) << atLimit.error->text();
    ASSERT_TRUE(atLimit.reply.is_string());
    EXPECT_GT(atLimit.reply.get<std::string>().size(), std::size_t(limit) - 100);

    script({{"method", fanSpeed}, {"action", "oversize"}, {"bytes", limit + 1}, {"times", 1}});
    auto overLimit = timedCall(fanSpeed, shortWait);
    ASSERT_TRUE(overLimit.error);
    EXPECT_EQ(overLimit.error->code, jsonrpc::timeoutError);
}

}  // namespace
}  // namespace kelvane::testing
