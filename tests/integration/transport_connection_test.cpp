// RPCClientWrapper against a controller that is not there or is slow for one of several threads;
// silence, odd timeouts, a reply at the size limit, a flood; the thread that reads every client's
// connection events. Real sockets, kelvane-sim. (What reaches the caller for each fault, and the
// recovery after a protocol error: fault_campaign_test.cpp.)
#include "process_resources.hpp"
#include "rpc/connection_monitors.hpp"
#include "simulator_test_support.hpp"

#include <future>
#include <limits>

namespace kelvane::testing {
namespace {

using std::chrono::milliseconds;
using Stopwatch = std::chrono::steady_clock;

const std::string serverMode(methods::serverMode);
const std::string fanSpeed(methods::getFanSpeed);
const Value longWait = {{"timeout_ms", 20000}}, shortWait = {{"timeout_ms", 100}}, noWait = {{"timeout_ms", 0}};

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

using TransportRepliesTest = SimulatorTest;

// One client shared by several threads, as the TEC workers and the host share it: a slow call
// holds nobody up. Silence ends a call after timeout_ms plus the margin, or the default three
// seconds; odd timeout_ms values neither overflow nor lose the reply; a reply at the message
// limit is taken. (Threads getting their own replies while others time out or meet faults, and
// late, garbage, misaddressed and oversize replies: the fault campaign. Closing with calls in
// flight: the C interface's destroy while waiting, and PendingCalls.)
TEST_F(TransportRepliesTest, SlowCallHoldsNobodyUpSilenceEndsAfterTheMarginOddTimeoutsKeepTheReplyAtTheLimitIsTaken) {
    script({{"method", fanSpeed}, {"reply", "slow"}, {"delay_ms", 2000}, {"times", 1}});
    auto slow = std::async(std::launch::async, [this] { return ask(fanSpeed, {1}, {{"timeout_ms", 5000}}).first; });
    ASSERT_TRUE(eventually([&] { return sim.control(methods::sim::journal).size() == 1; }));
    for (int i = 0; i < 20; ++i) EXPECT_EQ(call(serverMode), "normal");
    EXPECT_EQ(slow.wait_for(std::chrono::seconds(0)), std::future_status::timeout)
        << "the quick calls finished while the slow one was still waiting";
    EXPECT_EQ(slow.get(), "slow");

    script({{"method", fanSpeed}, {"action", "no_reply"}, {"times", 3}});
    // timeout_ms 100 plus the 500 ms margin, timeout_ms 0 the margin alone, none the default 3 s.
    for (const auto& [kwargs, waited] :
         std::vector<std::pair<Value, int>>{{shortWait, 600}, {noWait, 500}, {{}, 3000}}) {
        auto start = Stopwatch::now();
        auto [reply, error] = ask(fanSpeed, {1}, kwargs);
        auto took = since(start);
        EXPECT_TRUE(reply.is_null()) << "a failed call has no reply";
        EXPECT_EQ(error ? error->text() : "answered",
                  fanSpeed + " timed out after " + std::to_string(waited) + " ms (code -32100)");
        EXPECT_GE(took, milliseconds(waited));
        EXPECT_LT(took, milliseconds(waited + 2500));
    }

    // The margin lets the controller's own answer arrive after timeout_ms has passed.
    script({{"method", fanSpeed}, {"reply", "slow but in time"}, {"delay_ms", 300}, {"times", 1}});
    EXPECT_EQ(call(fanSpeed, {1}, noWait), "slow but in time");

    for (Value timeout :
         {Value(std::numeric_limits<std::int64_t>::max()), Value(-5), Value(1.5), Value("soon"), Value(nullptr)}) {
        EXPECT_EQ(call(fanSpeed, {1}, {{"timeout_ms", timeout}}), 0) << describe(timeout);
    }

    constexpr long long limit = 1 << 20;
    script({{"method", fanSpeed}, {"action", "oversize"}, {"bytes", limit}, {"times", 1}});
    Value atLimit = call(fanSpeed, {1}, {{"timeout_ms", 2000}});
    ASSERT_TRUE(atLimit.is_string());
    EXPECT_GT(atLimit.get<std::string>().size(), std::size_t(limit) - 100);
}

// A peer that sends frames nobody asked for while the client is idle costs a bounded amount of
// memory, and the client still gets its replies afterwards.
TEST(TransportFlood, IdleClientBuffersABoundedAmountOfUnaskedDataAndStillWorks) {
    if (!residentBytes()) GTEST_SKIP() << "no /proc/self/statm: resident memory is not readable here";
    zmq::context_t context;
    zmq::socket_t peer(context, zmq::socket_type::dealer);
    peer.set(zmq::sockopt::linger, 0);
    peer.set(zmq::sockopt::sndhwm, 1);  // the flood is not to pile up on this side either
    peer.set(zmq::sockopt::sndtimeo, 200);
    peer.set(zmq::sockopt::rcvtimeo, 5000);
    peer.bind("tcp://127.0.0.1:*");
    auto endpoint = peer.get(zmq::sockopt::last_endpoint);
    auto port = static_cast<std::uint32_t>(std::stoul(endpoint.substr(endpoint.rfind(':') + 1)));
    auto client = RPCClientWrapper::initWithIP("127.0.0.1", port);
    ASSERT_TRUE(client);
    // A call of the client, answered by the peer with "served".
    auto served = [&] {
        auto reply = std::async(std::launch::async, [&] { return client->rpc("server.mode", nullptr); });
        std::vector<zmq::message_t> request;
        bool read = zmq::recv_multipart(peer, std::back_inserter(request)) && request.size() == 2;
        auto decoded = read ? jsonrpc::decodeRequest(request[1].to_string_view()) : std::nullopt;
        if (decoded && peer.send(zmq::message_t(), zmq::send_flags::sndmore))
            peer.send(zmq::buffer(jsonrpc::encodeResult(decoded->id, "served")));
        return reply.get() == "served";
    };
    ASSERT_TRUE(served());

    auto before = *residentBytes();
    constexpr std::size_t frameBytes = 256 << 10;
    constexpr int frames = 1000;  // 250 MiB, were it all kept
    const std::string junk(frameBytes, 'x');
    int sent = 0;
    // Single frames, so a send refused for back-pressure leaves no message half sent.
    while (sent < frames && peer.send(zmq::buffer(junk))) ++sent;
    peer.set(zmq::sockopt::sndtimeo, 5000);
    auto grown = static_cast<long long>(*residentBytes()) - static_cast<long long>(before);
    if (residentSizeIsMeaningful) {
        EXPECT_LT(grown, 32ll << 20) << sent << " frames of 256 KiB sent unasked";
    }
    EXPECT_TRUE(served()) << "the client reads past what nobody asked for";
}

// Records the events the monitor thread hands it, holding its reaction to a drop until released.
struct HeldListener : ConnectionMonitors::Listener {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::uint16_t> events;
    bool released = false;

    std::optional<ConnectionMonitors::Deadline> onEvent(std::uint16_t event) override {
        std::unique_lock lock(mutex);
        events.push_back(event);
        changed.notify_all();
        changed.wait(lock, [&] { return event != ZMQ_EVENT_DISCONNECTED || released; });
        return std::nullopt;
    }
    std::optional<ConnectionMonitors::Deadline> onDue() override { return std::nullopt; }
    bool heard(std::size_t count) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(5), [&] { return events.size() == count; });
    }
};

// remove() waits out a reaction under way, so nothing of a client's runs after the client has left.
// (Each client hearing its own socket's events: every test with several clients; the due call that
// reconnects: the fault campaign's oversize frames.)
TEST(TransportMonitors, RemoveWaitsForTheListenersReactionUnderWay) {
    zmq::context_t context;
    ConnectionMonitors monitors(context);
    zmq::socket_t peer(context, zmq::socket_type::router), client(context, zmq::socket_type::dealer);
    for (auto* socket : {&peer, &client}) socket->set(zmq::sockopt::linger, 0);
    peer.bind("tcp://127.0.0.1:*");
    HeldListener listener;
    monitors.add(client.handle(), ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_DISCONNECTED, listener);
    client.connect(peer.get(zmq::sockopt::last_endpoint));
    ASSERT_TRUE(listener.heard(1));
    peer.close();
    ASSERT_TRUE(listener.heard(2));
    auto removal = std::async(std::launch::async, [&] { monitors.remove(listener); });
    EXPECT_EQ(removal.wait_for(milliseconds(200)), std::future_status::timeout)
        << "remove() returned while the listener's reaction was running";
    {
        std::lock_guard lock(listener.mutex);
        listener.released = true;
        listener.changed.notify_all();
    }
    removal.get();
    EXPECT_EQ(listener.events, (std::vector<std::uint16_t>{ZMQ_EVENT_HANDSHAKE_SUCCEEDED, ZMQ_EVENT_DISCONNECTED}));
}

}  // namespace
}  // namespace kelvane::testing
