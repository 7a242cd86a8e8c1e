#include "session_fixture.hpp"

#include <kelvane/protocol/json_rpc.hpp>
#include "rpc/rpc_client_wrapper.hpp"
#include "trace/tracing_client.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <thread>

using kelvane::RpcError;
using kelvane::traceFile;
using kelvane::TracingClient;
using kelvane::Value;
using kelvane::testing::FakeRpcClient;
using kelvane::testing::TemporaryDirectory;
using kelvane::testing::VirtualClock;
using ::testing::HasSubstr;

namespace {

std::vector<Value> traceLines(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::vector<Value> lines;
    for (std::string text; std::getline(file, text);) {
        lines.push_back(Value::parse(text, nullptr, false));
        EXPECT_TRUE(lines.back().is_object()) << "not one whole line: " << text;
    }
    return lines;
}

}  // namespace

// The outcome is the wrapped client's error kind, not guessed from a code any controller may send.
TEST(TraceWriter, TracedCallsCarryTheCallBothClocksAndTheOutcomeTheClientDecided) {
    TemporaryDirectory folder;
    auto clock = std::make_shared<VirtualClock>(1'700'000'000.25);
    auto controller = std::make_shared<FakeRpcClient>();
    TracingClient client(controller, traceFile(folder.path() / "trace.jsonl", 1 << 20), clock, "tcp://127.0.0.1:7805");
    controller->onCall([&](const auto& call) {
        if (call.method == "vantrel.fixture_in") clock->advance(0.012);
    });

    controller->answer("vantrel.fixture_in", "in_done");
    EXPECT_EQ(client.rpc("vantrel.fixture_in", Value::array(), {{"timeout_ms", 20000}}, nullptr), "in_done");
    clock->stepWallClock(-3600);  // a time sync: the wall time jumps, the trace's seconds do not
    clock->advance(1.5);
    namespace rpc = kelvane::jsonrpc;
    using Kind = RpcError::Kind;
    const std::pair<RpcError, std::string> failures[] = {
        {{rpc::timeoutError, "bus error"}, "error"},
        {{rpc::timeoutError, "late", Kind::timeout}, "timeout"},
        {{rpc::notConnectedError, "gone", Kind::notReachable}, "not_reachable"},
        {{rpc::clientClosedError, "closed", Kind::closed}, "closed"}};
    for (const auto& failure : failures) controller->fail("vantrel.get_fan_speed", failure.first);
    for (int call = 0; call < 4; ++call) client.rpc("vantrel.get_fan_speed", Value::array({1}), nullptr);

    auto lines = traceLines(folder.path() / "trace.jsonl");
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], Value::parse(R"({"time":"2023-11-14T22:13:20.250Z","t":0.0,
        "endpoint":"tcp://127.0.0.1:7805","id":1,"method":"vantrel.fixture_in","params":[],
        "kwargs":{"timeout_ms":20000},"outcome":"result","result":"in_done","ms":12.0})"));
    EXPECT_DOUBLE_EQ(lines[1]["t"].get<double>(), 1.512);
    EXPECT_EQ(lines[1]["time"], "2023-11-14T21:13:21.762Z");
    EXPECT_EQ(lines[1]["error"], (Value{{"code", rpc::timeoutError}, {"message", "bus error"}}));
    EXPECT_FALSE(lines[1].contains("result"));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(lines[i + 1]["outcome"], failures[i].second);
    EXPECT_EQ(std::tie(lines[4]["id"], lines[4]["ms"]), std::tuple(5, 0.0));
}

// No line is lost below the limit; past it the file is moved once to "<file>.1", neither passing it.
TEST(TraceWriter, EightThreadsWriteWholeLinesAndTheFileRotatesOnceAtItsLimit) {
    TemporaryDirectory folder;
    const auto path = folder.path() / "trace.jsonl";
    constexpr int threads = 8, callsEach = 200;
    auto writeFromThreads = [&](std::uint64_t maxBytes) {
        auto writer = traceFile(path, maxBytes);
        EXPECT_EQ(writer, traceFile(path, maxBytes)) << "one writer per file";
        auto controller = std::make_shared<FakeRpcClient>();
        controller->answer("vantrel.get_fan_speed", "40");
        TracingClient client(controller, writer, std::make_shared<VirtualClock>(), "tcp://127.0.0.1:7805");
        std::vector<std::thread> workers;
        for (int worker = 0; worker < threads; ++worker) {
            workers.emplace_back([&client] {
                for (int call = 0; call < callsEach; ++call) {
                    client.rpc("vantrel.get_fan_speed", Value::array({std::string(call % 50, 'x')}), nullptr);
                }
            });
        }
        for (auto& worker : workers) worker.join();
    };

    writeFromThreads(std::uint64_t{1} << 30);
    auto lines = traceLines(path);
    ASSERT_EQ(lines.size(), std::size_t{threads * callsEach});
    std::set<std::int64_t> ids;
    for (const auto& line : lines) ids.insert(line["id"].get<std::int64_t>());
    EXPECT_EQ(ids.size(), lines.size());

    std::filesystem::remove(path);
    constexpr std::uint64_t limit = 16 * 1024;
    writeFromThreads(limit);
    const auto older = path.string() + ".1";
    ASSERT_TRUE(std::filesystem::exists(older));
    for (const auto& file : {path.string(), older}) {
        EXPECT_LE(std::filesystem::file_size(file), limit);
        EXPECT_FALSE(traceLines(file).empty());
    }
    EXPECT_GT(std::filesystem::file_size(older), limit / 2);
}

// A host that passes no settings turns tracing on from its environment. An unwritable trace loses
// its lines, never a call; the file is tried again at each line.
TEST(TraceWriter, AnUnwritableTraceLeavesCallsAloneAndIsTriedAgain) {
    TemporaryDirectory folder;
    const auto path = folder.path() / "later" / "trace.jsonl";
    ::setenv("KELVANE_TRACE", path.c_str(), 1);
    kelvane::Platform platform = kelvane::Platform::defaults();
    ::unsetenv("KELVANE_TRACE");
    kelvane::RPCClientWrapper::Options options;
    options.connectGrace = std::chrono::milliseconds(20);
    platform.connect = kelvane::RPCClientWrapper::factory(options);
    auto client = platform.clientFor("127.0.0.1", 1);
    ASSERT_NE(client, nullptr);

    std::optional<RpcError> error;
    EXPECT_TRUE(client->rpc("server.mode", &error).is_null());
    EXPECT_EQ(error.value_or(RpcError{}).code, kelvane::jsonrpc::notConnectedError);
    EXPECT_FALSE(std::filesystem::exists(path.parent_path()));
    std::filesystem::create_directories(path.parent_path());
    client->rpc("server.mode", Value::array({"again"}), nullptr);
    auto lines = traceLines(path);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(Value::array({lines[0]["params"], lines[0]["outcome"], lines[0]["endpoint"]}),
              Value::parse(R"([["again"], "not_reachable", "tcp://127.0.0.1:1"])"));
    EXPECT_THAT(lines[0]["error"]["message"].get<std::string>(), HasSubstr("127.0.0.1:1"));
}
