// The wire protocol as any client meets it, the journal, and the process's start-up failures.
#include "simulator_test_support.hpp"

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;

using SimulatorProtocolTest = SimulatorTest;

// "method not found: <method>" for unknown methods is what the fault campaign's probe relies on.
TEST_F(SimulatorProtocolTest, ReqPeersAreServedAndUnreadableRequestsAreDroppedOrRejected) {
    auto answers = rawExchange({"not json", R"({"jsonrpc":"2.0","method":"server.mode","params":[]})",
                                R"({"jsonrpc":"2.0","id":5,"params":[]})",
                                jsonrpc::encodeRequest({6, std::string(m::serverMode), Value::array(), nullptr})},
                               2);
    auto rejected = jsonrpc::decodeReply(answers[0]);
    ASSERT_TRUE(rejected && rejected->error) << "the first two had no id to answer";
    EXPECT_EQ(rejected->id, 5);
    EXPECT_EQ(rejected->error->code, jsonrpc::invalidRequestError);
    EXPECT_EQ(jsonrpc::decodeReply(answers[1])->result, "normal");

    zmq::context_t context;
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
    call(m::fixtureIoSet, {{{10, 1}}}, {{"timeout_ms", 20000}});
    failure("vantrel.teleport");
    sim.control("sim.state");
    EXPECT_EQ(sim.control("sim.journal"),
              (Value{{{"method", m::fixtureIoSet}, {"params", {{{10, 1}}}}, {"kwargs", {{"timeout_ms", 20000}}}},
                     {{"method", "vantrel.teleport"}, {"params", Value::array()}, {"kwargs", nullptr}}}));
    EXPECT_EQ(sim.control("sim.clear_journal"), "done");
    EXPECT_EQ(sim.control("sim.journal"), Value::array());
    call(m::serverMode);
    sim.control("sim.reset");
    EXPECT_EQ(sim.control("sim.journal"), Value::array());
}

TEST(SimulatorProcessTest, MissingBinaryOrBadOptionsFailToStart) {
    EXPECT_THROW(SimulatorProcess({}, "/nonexistent/kelvane-sim"), std::runtime_error);
    EXPECT_THROW(SimulatorProcess({"--dut", "maybe"}), std::runtime_error);
}

}  // namespace
}  // namespace kelvane::testing
