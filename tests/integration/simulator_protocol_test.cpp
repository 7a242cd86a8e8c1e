// The wire protocol as any client meets it, the journal, and the process's life cycle.
#include "simulator_test_support.hpp"

#include "rpc/methods.hpp"

#include <zmq.hpp>
#include <zmq_addon.hpp>

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;

using SimulatorProtocolTest = SimulatorTest;

TEST_F(SimulatorProtocolTest, UnknownMethodsAnswerMethodNotFound) {
    RpcError error = failure("vantrel.teleport", {1});
    EXPECT_EQ(error.code, jsonrpc::methodNotFoundError);
    EXPECT_EQ(error.message, "method not found: vantrel.teleport");
    EXPECT_EQ(failure("sim.teleport").code, jsonrpc::methodNotFoundError);
}

TEST_F(SimulatorProtocolTest, ReqPeersAreServedAndUnreadableRequestsAreDroppedOrRejected) {
    zmq::context_t context;
    zmq::socket_t dealer(context, zmq::socket_type::dealer);
    dealer.set(zmq::sockopt::linger, 0);
    dealer.set(zmq::sockopt::rcvtimeo, 5000);
    dealer.connect(sim.endpoint());
    auto send = [&](const std::string& text) {
        dealer.send(zmq::message_t(), zmq::send_flags::sndmore);
        dealer.send(zmq::buffer(text), zmq::send_flags::none);
    };
    send("not json");
    send(R"({"jsonrpc":"2.0","method":"server.mode","params":[]})");
    send(R"({"jsonrpc":"2.0","id":5,"params":[]})");
    send(jsonrpc::encodeRequest({6, std::string(m::serverMode), Value::array(), nullptr}));
    std::vector<zmq::message_t> parts;
    ASSERT_TRUE(zmq::recv_multipart(dealer, std::back_inserter(parts)));
    auto rejected = jsonrpc::decodeReply(parts.back().to_string_view());
    ASSERT_TRUE(rejected && rejected->error) << "the first two had no id to answer";
    EXPECT_EQ(rejected->id, 5);
    EXPECT_EQ(rejected->error->code, jsonrpc::invalidRequestError);
    parts.clear();
    ASSERT_TRUE(zmq::recv_multipart(dealer, std::back_inserter(parts)));
    EXPECT_EQ(jsonrpc::decodeReply(parts.back().to_string_view())->result, "normal");

    zmq::socket_t req(context, zmq::socket_type::req);
    req.set(zmq::sockopt::linger, 0);
    req.set(zmq::sockopt::rcvtimeo, 5000);
    req.connect(sim.endpoint());
    req.send(zmq::buffer(jsonrpc::encodeRequest({9, std::string(m::dutSensorRead), Value::array(), nullptr})));
    zmq::message_t answer;
    ASSERT_TRUE(req.recv(answer));
    EXPECT_EQ(jsonrpc::decodeReply(answer.to_string_view())->result, "dut_sensor_on");
}

TEST_F(SimulatorProtocolTest, JournalRecordsControllerRequestsInOrderButNotControlCalls) {
    call(std::string(m::fixtureIoSet), {{{10, 1}}}, {{"timeout_ms", 20000}});
    failure("vantrel.teleport");
    sim.control("sim.state");
    call(std::string(m::upSensorRead));
    Value expected = {
        {{"method", m::fixtureIoSet}, {"params", {{{10, 1}}}}, {"kwargs", {{"timeout_ms", 20000}}}},
        {{"method", "vantrel.teleport"}, {"params", Value::array()}, {"kwargs", nullptr}},
        {{"method", m::upSensorRead}, {"params", Value::array()}, {"kwargs", nullptr}},
    };
    EXPECT_EQ(sim.control("sim.journal"), expected);
    EXPECT_EQ(sim.control("sim.clear_journal"), "done");
    EXPECT_EQ(sim.control("sim.journal"), Value::array());
    call(std::string(m::serverMode));
    sim.control("sim.reset");
    EXPECT_EQ(sim.control("sim.journal"), Value::array());
}

TEST_F(SimulatorProtocolTest, KilledSimulatorIsUnreachableAndRestartsFreshOnTheSamePort) {
    auto port = sim.port();
    call(std::string(m::magnetControl), {"on"});
    sim.kill();
    EXPECT_FALSE(sim.running());
    failure(std::string(m::serverMode), Value::array(), {{"timeout_ms", 200}});
    sim.restart();
    EXPECT_EQ(sim.port(), port);
    EXPECT_TRUE(eventually([&] { return client->isConnected(); })) << "the client reconnects by itself";
    EXPECT_EQ(call(std::string(m::serverMode)), "normal");
    EXPECT_EQ(sim.control("sim.state")["lock"], "off");
}

TEST(SimulatorProcessTest, MissingBinaryFailsWithAClearMessage) {
    try {
        SimulatorProcess missing({}, "/nonexistent/kelvane-sim");
        FAIL() << "a missing simulator must not start";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("/nonexistent/kelvane-sim"), std::string::npos);
    }
}

TEST(SimulatorProcessTest, BadOptionsFailToStartWithAClearMessage) {
    EXPECT_THROW(SimulatorProcess({"--dut", "maybe"}), std::runtime_error);
}

}  // namespace
}  // namespace kelvane::testing
