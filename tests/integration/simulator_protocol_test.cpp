// The simulator's wire protocol, journal and scripted answers as clients meet them, and its
// start-up failures.
#include "process_resources.hpp"
#include "simulator_test_support.hpp"

#include <sys/wait.h>

#include <cstdlib>

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;

const std::string fanSpeed(m::getFanSpeed);

using SimulatorProtocolTest = SimulatorTest;

// "method not found: <method>" for unknown methods is what the fault campaign's probe relies on.
TEST_F(SimulatorProtocolTest, ReqPeersAreServedAndUnreadableRequestsAreDroppedOrRejected) {
    zmq::context_t context;
    zmq::socket_t dealer(context, zmq::socket_type::dealer), req(context, zmq::socket_type::req);
    for (auto* socket : {&dealer, &req}) {
        socket->set(zmq::sockopt::linger, 0);
        socket->set(zmq::sockopt::rcvtimeo, 5000);
        socket->connect(sim.endpoint());
    }
    // Raw requests past the client's checks; only the last two have an id to answer.
    const std::string requests[] = {"not json", R"({"jsonrpc":"2.0","method":"server.mode","params":[]})",
                                    R"({"jsonrpc":"2.0","id":5,"params":[]})",
                                    jsonrpc::encodeRequest({6, std::string(m::serverMode), Value::array(), nullptr})};
    for (const auto& text : requests) {
        dealer.send(zmq::message_t(), zmq::send_flags::sndmore);
        dealer.send(zmq::buffer(text));
    }
    std::vector<std::string> answers;
    for (std::vector<zmq::message_t> parts; answers.size() < 2; parts.clear()) {
        ASSERT_TRUE(zmq::recv_multipart(dealer, std::back_inserter(parts)));
        ASSERT_EQ(parts.size(), 2u) << "an empty delimiter, then the reply";
        answers.push_back(parts.back().to_string());
    }
    auto rejected = jsonrpc::decodeReply(answers[0]);
    ASSERT_TRUE(rejected && rejected->error);
    EXPECT_EQ(rejected->id, 5);
    EXPECT_EQ(rejected->error->code, jsonrpc::invalidRequestError);
    EXPECT_EQ(jsonrpc::decodeReply(answers[1])->result, "normal");

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

// As the journal once kept requests (its newest 100,000, some 0.9 KiB each as JSON values), a
// flood grew the simulator by 90 MiB; now its 4 MiB bound holds. Under a sanitizer resident size
// says nothing and a request costs five times as much: a smaller flood that overfills the
// journal checks the bound there.
TEST_F(SimulatorProtocolTest, AFloodOfRequestsLeavesTheJournalWithinItsMemoryBound) {
    const std::string pid = std::to_string(sim.pid());
    if (!residentBytes(pid)) GTEST_SKIP() << "no /proc/PID/statm: resident memory is not readable here";
    zmq::context_t context;
    zmq::socket_t dealer(context, zmq::socket_type::dealer);
    dealer.set(zmq::sockopt::linger, 0);
    dealer.set(zmq::sockopt::rcvtimeo, 30000);
    dealer.connect(sim.endpoint());
    const Value params = Value::array({std::string(40, 'x')});
    // Sends a batch, then reads its answers, so neither side queues more than a batch; gives the
    // last answer. Every request is the same text: the simulator does not mind the ids.
    auto flood = [&](int requests, const std::string& method) {
        const std::string request = jsonrpc::encodeRequest({1, method, params, nullptr});
        std::string answer;
        for (int sent = 0, batch = 500; sent < requests; sent += batch) {
            batch = std::min(batch, requests - sent);
            for (int k = 0; k < batch; ++k) {
                dealer.send(zmq::message_t(), zmq::send_flags::sndmore);
                dealer.send(zmq::buffer(request));
            }
            for (int k = 0; k < batch; ++k) {
                std::vector<zmq::message_t> parts;
                if (!zmq::recv_multipart(dealer, std::back_inserter(parts))) return std::string("no answer");
                answer = parts.back().to_string();
            }
        }
        return answer;
    };
    flood(1000, "test.flood");
    const auto before = *residentBytes(pid);
    flood(builtWithoutSanitizers ? 150'000 : 30'000, "test.flood");
    auto grown = static_cast<long long>(*residentBytes(pid)) - static_cast<long long>(before);
    if (builtWithoutSanitizers) {
        EXPECT_LT(grown, 32ll << 20);
    }

    auto reply = jsonrpc::decodeReply(flood(1, "sim.journal"));
    ASSERT_TRUE(reply && reply->result.is_array());
    const Value& journal = reply->result;
    EXPECT_GT(journal.size(), 5000u) << "the newest entries fill the bound";
    EXPECT_LT(journal.dump().size(), 4u << 20) << journal.size() << " entries";
    EXPECT_EQ(journal.back(), (Value{{"method", "test.flood"}, {"params", params}, {"kwargs", nullptr}}));
    EXPECT_EQ(sim.control("sim.clear_journal"), "done");
    EXPECT_EQ(sim.control("sim.journal"), Value::array());
    if (!builtWithoutSanitizers) GTEST_SKIP() << "a flood of 30,000, resident size not checked under a sanitizer";
}

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

TEST(SimulatorProcessTest, MissingBinaryOrBadOptionsFailToStart) {
    EXPECT_THROW(SimulatorProcess({}, "/nonexistent/kelvane-sim"), std::runtime_error);
    for (std::string args : {"--dut maybe", "--fixtures 65", "--journal-mb -1", "--fixtures 2 --replay trace.jsonl",
                             "--fixtures 3 --bind tcp://127.0.1.254:0", "--fixtures 2 --bind ipc://sim"}) {
        int status = std::system(("timeout 10 " KELVANE_SIM_PATH " " + args + " 2>/dev/null").c_str());
        EXPECT_EQ(WEXITSTATUS(status), 64) << args << ": a usage error";
    }
}

}  // namespace
}  // namespace kelvane::testing
