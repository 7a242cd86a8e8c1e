// RPCClientWrapper against a controller that is not there, goes away, comes back, is slow for one
// of several threads, or is still busy when the client is closed. Real sockets, kelvane-sim.
#include "simulator_test_support.hpp"

#include <future>

namespace kelvane::testing {
namespace {

using std::chrono::milliseconds;
using Stopwatch = std::chrono::steady_clock;

const std::string serverMode(methods::serverMode);
const std::string fanSpeed(methods::getFanSpeed);
const Value longWait = {{"timeout_ms", 20000}};

milliseconds since(Stopwatch::time_point start) {
    return std::chrono::duration_cast<milliseconds>(Stopwatch::now() - start);
}

// The error code of a call, or 0 when it was answered.
int errorOf(RPCClientWrapper& client, const std::string& method, const Value& kwargs = nullptr) {
    std::optional<RpcError> error;
    client.call(method, Value::array({1}), kwargs, &error);
    return error ? error->code : 0;
}

TEST(TransportConnection, NothingListeningFailsWithinAboutASecondThenAtOnceAndClosesPromptly) {
    EXPECT_FALSE(RPCClientWrapper::initWithIP("not an address", 7805));
    std::uint32_t deadPort = SimulatorProcess().port();  // just given up, so nothing listens
    auto client = RPCClientWrapper::initWithIP("127.0.0.1", deadPort);
    ASSERT_TRUE(client);

    auto start = Stopwatch::now();
    EXPECT_EQ(errorOf(*client, serverMode), jsonrpc::notConnectedError);
    EXPECT_LT(since(start), milliseconds(3000)) << "the connect grace is about a second";
    start = Stopwatch::now();
    EXPECT_EQ(errorOf(*client, serverMode, longWait), jsonrpc::notConnectedError);
    EXPECT_LT(since(start), milliseconds(500)) << "after the grace, calls do not queue";
    start = Stopwatch::now();
    client.reset();
    EXPECT_LT(since(start), milliseconds(1000));
}

using TransportOutageTest = SimulatorTest;

// ZeroMQ ends a session for a protocol error for good; the client must connect anew by itself.
// (A reply frame over the message size limit: the fault campaign's oversize frames.)
TEST_F(TransportOutageTest, ProtocolErrorsDoNotWedgeTheClientItRecoversOnItsOwn) {
    // A peer of the wrong socket type answers on the port for a moment, then the controller.
    sim.kill();
    {
        zmq::context_t context;
        zmq::socket_t wrongType(context, zmq::socket_type::pub);
        wrongType.set(zmq::sockopt::linger, 0);
        wrongType.bind(sim.endpoint());
        zmq::socket_t watch(context, zmq::socket_type::pair);
        ASSERT_EQ(zmq_socket_monitor(wrongType.handle(), "inproc://wrong-type", ZMQ_EVENT_DISCONNECTED), 0);
        watch.connect("inproc://wrong-type");
        watch.set(zmq::sockopt::rcvtimeo, 5000);
        zmq::message_t event;
        ASSERT_TRUE(watch.recv(event)) << "the client never tried the wrong peer";
        zmq_socket_monitor(wrongType.handle(), nullptr, 0);
    }
    sim.restart();
    EXPECT_TRUE(eventually([&] { return errorOf(*client, serverMode) == 0; }))
        << "still wedged after a peer of the wrong socket type";
}

// One client shared by several threads, as the TEC workers and the host share the session's
// client: a slow call holds nobody up. (Threads getting their own replies while others time out
// or meet faults: the fault campaign's mixed part.)
using TransportConcurrencyTest = SimulatorTest;

TEST_F(TransportConcurrencyTest, SlowCallDoesNotHoldUpOtherThreadsCalls) {
    script({{"method", fanSpeed}, {"reply", "slow"}, {"delay_ms", 2000}, {"times", 1}});
    auto slow = std::async(std::launch::async, [this] { return ask(fanSpeed, {1}, {{"timeout_ms", 5000}}).first; });
    ASSERT_TRUE(eventually([&] { return sim.control("sim.journal").size() == 1; }));
    for (int i = 0; i < 20; ++i) EXPECT_EQ(call(serverMode), "normal");
    EXPECT_EQ(slow.wait_for(std::chrono::seconds(0)), std::future_status::timeout)
        << "the quick calls finished while the slow one was still waiting";
    EXPECT_EQ(slow.get(), "slow");
}

TEST_F(TransportOutageTest, ClosingWithCallsInFlightFailsThemAndReturnsPromptly) {
    script({{"method", fanSpeed}, {"action", "no_reply"}});
    RPCClientWrapper* borrowed = client.get();
    std::vector<std::future<int>> inFlight;
    for (int i = 0; i < 3; ++i)
        inFlight.push_back(std::async(std::launch::async, [&] { return errorOf(*borrowed, fanSpeed, longWait); }));
    ASSERT_TRUE(eventually([&] { return sim.control("sim.journal").size() == 3; }));

    auto start = Stopwatch::now();
    client.reset();
    EXPECT_LT(since(start), milliseconds(2000));
    for (auto& call : inFlight) EXPECT_EQ(call.get(), jsonrpc::clientClosedError);
}

}  // namespace
}  // namespace kelvane::testing
