// RPCClientWrapper against a controller that is not there, goes away, comes back, or is still
// busy when the client is closed. Real sockets, kelvane-sim processes.
#include "simulator_test_support.hpp"

#include "rpc/methods.hpp"

#include <future>

namespace kelvane::testing {
namespace {

using std::chrono::milliseconds;
using Stopwatch = std::chrono::steady_clock;

const std::string serverMode(methods::serverMode);
const std::string fanSpeed(methods::getFanSpeed);

milliseconds since(Stopwatch::time_point start) {
    return std::chrono::duration_cast<milliseconds>(Stopwatch::now() - start);
}

struct Answer {
    Value reply;
    std::optional<RpcError> error;
};

Answer ask(RPCClientWrapper& client, const std::string& method, const Value& kwargs = nullptr) {
    Answer answer;
    answer.reply = client.call(method, Value::array({1}), kwargs, &answer.error);
    return answer;
}

// A loopback port on which nothing listens: one a simulator has just given up.
std::uint32_t deadPort() {
    SimulatorProcess sim;
    return sim.port();
}

TEST(TransportConnection, NothingListeningFailsWithinAboutASecondThenAtOnceAndClosesPromptly) {
    auto client = RPCClientWrapper::initWithIP("127.0.0.1", deadPort());
    ASSERT_TRUE(client);

    auto start = Stopwatch::now();
    Answer first = ask(*client, serverMode);
    EXPECT_LT(since(start), milliseconds(3000)) << "the connect grace is about a second";
    EXPECT_TRUE(first.reply.is_null());
    ASSERT_TRUE(first.error);
    EXPECT_EQ(first.error->code, jsonrpc::notConnectedError);

    start = Stopwatch::now();
    Answer second = ask(*client, serverMode, {{"timeout_ms", 20000}});
    EXPECT_LT(since(start), milliseconds(500)) << "after the grace, calls do not queue";
    ASSERT_TRUE(second.error);
    EXPECT_EQ(second.error->code, jsonrpc::notConnectedError);

    start = Stopwatch::now();
    client.reset();
    EXPECT_LT(since(start), milliseconds(1000));
}

TEST(TransportConnection, AddressZeroMqCannotUseGivesNoClient) {
    EXPECT_FALSE(RPCClientWrapper::initWithIP("not an address", 7805));
}

class TransportOutageTest : public SimulatorTest {};

TEST_F(TransportOutageTest, KilledControllerFailsCallsAtOnceAndRestartedOneServesTheSameClient) {
    EXPECT_EQ(call(serverMode), "normal");
    sim.control("sim.clear_journal");

    // A call in flight when the controller dies does not wait out its timeout.
    sim.control("sim.script", Value::array({{{"method", fanSpeed}, {"action", "no_reply"}}}));
    auto start = Stopwatch::now();
    auto inFlight = std::async(std::launch::async,
                               [&] { return ask(*client, fanSpeed, {{"timeout_ms", 20000}}); });
    ASSERT_TRUE(eventually([&] { return sim.control("sim.journal").size() == 1; }));
    sim.kill();
    Answer lost = inFlight.get();
    EXPECT_LT(since(start), milliseconds(5000));
    ASSERT_TRUE(lost.error);
    EXPECT_EQ(lost.error->code, jsonrpc::notConnectedError);

    start = Stopwatch::now();
    Answer during = ask(*client, serverMode, {{"timeout_ms", 20000}});
    EXPECT_LT(since(start), milliseconds(1000)) << "calls during an outage fail rather than queue";
    ASSERT_TRUE(during.error);
    EXPECT_EQ(during.error->code, jsonrpc::notConnectedError);
    EXPECT_FALSE(client->isConnected());

    sim.restart();
    EXPECT_TRUE(eventually([&] { return ask(*client, serverMode).reply == "normal"; }))
        << "the same client reconnects on its own";
    EXPECT_TRUE(client->isConnected());
}

TEST_F(TransportOutageTest, ClosingWithCallsInFlightFailsThemAndReturnsPromptly) {
    sim.control("sim.script", Value::array({{{"method", fanSpeed}, {"action", "no_reply"}}}));
    RPCClientWrapper* borrowed = client.get();
    std::vector<std::future<Answer>> inFlight;
    for (int i = 0; i < 3; ++i) {
        inFlight.push_back(std::async(std::launch::async, [&] {
            return ask(*borrowed, fanSpeed, {{"timeout_ms", 20000}});
        }));
    }
    ASSERT_TRUE(eventually([&] { return sim.control("sim.journal").size() == 3; }));

    auto start = Stopwatch::now();
    client.reset();
    EXPECT_LT(since(start), milliseconds(2000));
    for (auto& call : inFlight) {
        Answer answer = call.get();
        EXPECT_TRUE(answer.reply.is_null());
        ASSERT_TRUE(answer.error);
        EXPECT_EQ(answer.error->code, jsonrpc::clientClosedError);
    }
}

}  // namespace
}  // namespace kelvane::testing
