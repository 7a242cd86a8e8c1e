// RPCClientWrapper against a controller that is not there, goes away, comes back or is slow for
// one of several threads; and what it makes of each kind of answer a controller can give:
// silence, odd timeouts, a reply at the size limit, a flood.
// Also the one thread that reads the connection events of every client.
// Real sockets, kelvane-sim. (Results, null results and errors reaching the caller are shown in
// fault_campaign_test.cpp.)
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
const Value longWait = {{"timeout_ms", 20000}}, shortWait = {{"timeout_ms", 100}};

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
using TransportRepliesTest = SimulatorTest;

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
    ASSERT_TRUE(eventually([&] { return sim.control(methods::sim::journal).size() == 1; }));
    for (int i = 0; i < 20; ++i) EXPECT_EQ(call(serverMode), "normal");
    EXPECT_EQ(slow.wait_for(std::chrono::seconds(0)), std::future_status::timeout)
        << "the quick calls finished while the slow one was still waiting";
    EXPECT_EQ(slow.get(), "slow");
}

// Silence ends a call after timeout_ms plus the margin, or the default three seconds; odd
// timeout_ms values neither overflow nor lose the reply; a reply at the message limit is taken.
// (Closing with calls in flight: the C interface's destroy while waiting, and PendingCalls.
// Late, garbage, misaddressed and oversize replies are dropped: the fault campaign.)
TEST_F(TransportRepliesTest, SilenceTimesOutAfterTheMarginOddTimeoutsKeepTheReplyAReplyAtTheLimitIsTaken) {
    auto timedFailure = [&](const Value& kwargs) {
        auto start = Stopwatch::now();
        auto [reply, error] = ask(fanSpeed, {1}, kwargs);
        EXPECT_TRUE(!error || reply.is_null()) << "a failed call has no reply";
        return std::pair(error ? error->code : 0, since(start));
    };
    script({{"method", fanSpeed}, {"action", "no_reply"}, {"times", 3}});
    auto [code, took] = timedFailure(shortWait);
    EXPECT_EQ(code, jsonrpc::timeoutError);
    EXPECT_GE(took, milliseconds(600)) << "timeout_ms 100 plus the 500 ms margin";
    EXPECT_LT(took, milliseconds(3000));
    std::tie(code, took) = timedFailure(nullptr);
    EXPECT_EQ(code, jsonrpc::timeoutError);
    EXPECT_GE(took, milliseconds(3000));
    EXPECT_LT(took, milliseconds(6000));
    auto given0 = ask(fanSpeed, {1}, {{"timeout_ms", 0}}).second;  // gives up after the margin alone
    EXPECT_EQ(given0 ? given0->message : "", fanSpeed + " timed out after 500 ms");

    // The margin lets the controller's own answer arrive after timeout_ms has passed.
    script({{"method", fanSpeed}, {"reply", "slow but in time"}, {"delay_ms", 300}, {"times", 1}});
    EXPECT_EQ(call(fanSpeed, {1}, {{"timeout_ms", 0}}), "slow but in time");

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
    // Answers one request of the client with "served".
    auto serveOne = [&] {
        std::vector<zmq::message_t> request;
        if (!zmq::recv_multipart(peer, std::back_inserter(request)) || request.size() != 2) return false;
        auto decoded = jsonrpc::decodeRequest(request[1].to_string_view());
        if (!decoded) return false;
        peer.send(zmq::message_t(), zmq::send_flags::sndmore);
        return peer.send(zmq::buffer(jsonrpc::encodeResult(decoded->id, "served"))).has_value();
    };
    auto served = [&] {
        auto reply = std::async(std::launch::async, [&] { return client->rpc("server.mode", nullptr); });
        EXPECT_TRUE(serveOne());
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

// Records what the monitor thread hands it; can hold its next reaction until released.
struct RecordingListener : ConnectionMonitors::Listener {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::uint16_t> events;
    int dues = 0;
    bool holdNext = false, held = false, released = false;

    std::optional<ConnectionMonitors::Deadline> onEvent(std::uint16_t event) override {
        std::unique_lock lock(mutex);
        events.push_back(event);
        held = std::exchange(holdNext, false);
        changed.notify_all();
        changed.wait(lock, [&] { return !held || released; });
        if (event != ZMQ_EVENT_DISCONNECTED) return std::nullopt;
        return Stopwatch::now();
    }
    std::optional<ConnectionMonitors::Deadline> onDue() override {
        std::lock_guard lock(mutex);
        ++dues;
        changed.notify_all();
        return std::nullopt;
    }
    template <typename Condition>
    bool waitUntil(Condition condition) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(5), condition);
    }
};

// Two sockets watched by one thread: each listener hears its own socket's events (each monitor
// has an endpoint of its own), gets the call it asked for, and remove() waits out a reaction
// under way, so nothing of a client's runs after the client has left.
TEST(TransportMonitors, OneThreadServesEachListenerItsOwnEventsAndRemoveWaitsForItsReaction) {
    zmq::context_t context;
    ConnectionMonitors monitors(context);
    zmq::socket_t peers[] = {{context, zmq::socket_type::router}, {context, zmq::socket_type::router}};
    zmq::socket_t clients[] = {{context, zmq::socket_type::dealer}, {context, zmq::socket_type::dealer}};
    RecordingListener listeners[2];
    for (int i = 0; i < 2; ++i) {
        for (auto* socket : {&peers[i], &clients[i]}) socket->set(zmq::sockopt::linger, 0);
        peers[i].bind("tcp://127.0.0.1:*");
        monitors.add(clients[i].handle(), ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_DISCONNECTED, listeners[i]);
        clients[i].connect(peers[i].get(zmq::sockopt::last_endpoint));
    }
    for (auto& listener : listeners) {
        EXPECT_TRUE(listener.waitUntil([&] { return listener.events.size() == 1; }));
        EXPECT_EQ(listener.events, std::vector<std::uint16_t>{ZMQ_EVENT_HANDSHAKE_SUCCEEDED});
    }

    peers[1].close();
    EXPECT_TRUE(listeners[1].waitUntil([&] { return listeners[1].dues == 1; }));

    auto& first = listeners[0];
    {
        std::lock_guard lock(first.mutex);
        first.holdNext = true;
    }
    peers[0].close();
    ASSERT_TRUE(first.waitUntil([&] { return first.held; }));
    auto removal = std::async(std::launch::async, [&] { monitors.remove(first); });
    EXPECT_EQ(removal.wait_for(milliseconds(200)), std::future_status::timeout)
        << "remove() returned while the listener's reaction was running";
    {
        std::lock_guard lock(first.mutex);
        first.released = true;
        first.changed.notify_all();
    }
    removal.get();
    EXPECT_EQ(first.events, (std::vector<std::uint16_t>{ZMQ_EVENT_HANDSHAKE_SUCCEEDED, ZMQ_EVENT_DISCONNECTED}));
    EXPECT_EQ(listeners[1].events.size(), 2u) << "the other socket's events went to its own listener";
    monitors.remove(listeners[1]);
}

}  // namespace
}  // namespace kelvane::testing
