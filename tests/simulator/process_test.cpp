// kelvane-sim as a process: its sockets' peers, a station's fixtures at their own addresses, and
// its command line. (What the fixture answers is tested in process.)
#include "simulator_test_support.hpp"

#include <sys/wait.h>

#include <cstdlib>

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;

using SimulatorProcessTest = SimulatorTest;

// A DEALER that sends the delimiter itself and a REQ socket both get their reply on their route;
// a message without a delimiter is dropped and leaves the server serving.
TEST_F(SimulatorProcessTest, DealerAndReqPeersAreServedOnTheirRoutes) {
    zmq::context_t context;
    zmq::socket_t dealer(context, zmq::socket_type::dealer), req(context, zmq::socket_type::req);
    for (auto* socket : {&dealer, &req}) {
        socket->set(zmq::sockopt::linger, 0);
        socket->set(zmq::sockopt::rcvtimeo, 5000);
        socket->connect(sim.endpoint());
    }
    dealer.send(zmq::buffer(jsonrpc::encodeRequest({5, std::string(m::serverMode), Value::array(), nullptr})));
    dealer.send(zmq::message_t(), zmq::send_flags::sndmore);
    dealer.send(zmq::buffer(jsonrpc::encodeRequest({6, std::string(m::serverMode), Value::array(), nullptr})));
    std::vector<zmq::message_t> parts;
    ASSERT_TRUE(zmq::recv_multipart(dealer, std::back_inserter(parts)));
    ASSERT_EQ(parts.size(), 2u) << "an empty delimiter, then the reply";
    EXPECT_EQ(jsonrpc::decodeReply(parts.back().to_string_view())->id, 6);

    req.send(zmq::buffer(jsonrpc::encodeRequest({9, std::string(m::dutSensorRead), Value::array(), nullptr})));
    zmq::message_t answer;
    ASSERT_TRUE(req.recv(answer));
    EXPECT_EQ(jsonrpc::decodeReply(answer.to_string_view())->result, "dut_sensor_on");
}

TEST(SimulatorStationTest, EachFixtureOfOneProcessKeepsItsOwnWorldScriptsAndJournal) {
    SimulatorProcess station(SimulatedStation{2}, {"--travel-ms", "0"});
    ASSERT_EQ(station.address(2), "127.0.1.2");
    station.control(2, m::sim::script, Value::array({{{"method", m::serverMode}, {"reply", "scripted"}}}));
    station.control(2, m::sim::set, Value::array({{{"dut", false}}}));
    EXPECT_EQ(station.control(2, m::fixtureIn), "in_done");
    EXPECT_EQ(station.control(1, m::serverMode), "normal");
    for (auto [fixture, tray, dut, method] :
         {std::tuple{1, "OUT", true, m::serverMode}, std::tuple{2, "IN", false, m::fixtureIn}}) {
        Value state = station.control(fixture, m::sim::state), journal = station.control(fixture, m::sim::journal);
        EXPECT_EQ(Value::array({state["tray"]["horizontal"], state["dut"], journal.size(), journal[0]["method"]}),
                  Value::array({tray, dut, 1, method}))
            << fixture << journal.dump();
    }
}

TEST(SimulatorCommandLineTest, MissingBinaryOrBadOptionsFailToStart) {
    EXPECT_THROW(SimulatorProcess({}, "/nonexistent/kelvane-sim"), std::runtime_error);
    for (std::string args : {"--dut maybe", "--fixtures 65", "--journal-mb -1", "--fixtures 2 --replay trace.jsonl",
                             "--fixtures 3 --bind tcp://127.0.1.254:0", "--fixtures 2 --bind ipc://sim"}) {
        int status = std::system(("timeout 10 " KELVANE_SIM_PATH " " + args + " 2>/dev/null").c_str());
        EXPECT_EQ(WEXITSTATUS(status), 64) << args << ": a usage error";
    }
}

}  // namespace
}  // namespace kelvane::testing
