#include "session_fixture.hpp"
#include "virtual_clock.hpp"

#include <kelvane/protocol/json_rpc.hpp>
#include "rpc/rpc_client_wrapper.hpp"
#include "trace/call_trace.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <thread>

using kelvane::CallTrace;
using kelvane::RpcError;
using kelvane::TraceWriter;
using kelvane::Value;
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

void traceCall(CallTrace& trace, std::int64_t id, const Value& result,
               std::optional<RpcError> error = std::nullopt) {
    const std::string method = "vantrel.get_fan_speed";
    trace.record(trace.begin(), {id, method, Value::array({id % 4}), nullptr, result, error});
}

}  // namespace

TEST(TraceWriter, LinesCarryTheCallAndBothClocksAndEachOutcomeHasItsName) {
    TemporaryDirectory folder;
    auto clock = std::make_shared<VirtualClock>(1'700'000'000.25);
    auto writer = std::make_shared<TraceWriter>(folder.path() / "trace.jsonl", 1 << 20);
    CallTrace trace(writer, clock, "tcp://127.0.0.1:7805");

    auto start = trace.begin();
    clock->advance(0.012);
    const std::string method = "vantrel.fixture_in";
    const Value params = Value::array(), kwargs = {{"timeout_ms", 20000}}, result = "in_done";
    trace.record(start, {7, method, params, kwargs, result, std::nullopt});
    clock->stepWallClock(-3600);  // a time sync: the wall time jumps, the trace's seconds do not
    clock->advance(1.5);
    namespace rpc = kelvane::jsonrpc;
    const std::pair<int, std::string> failures[] = {{-32601, "error"}, {rpc::timeoutError, "timeout"},
        {rpc::notConnectedError, "not_reachable"}, {rpc::clientClosedError, "closed"}};
    for (auto [code, outcome] : failures) traceCall(trace, 8, nullptr, RpcError{code, outcome});

    auto lines = traceLines(writer->path());
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], Value::parse(R"({"time":"2023-11-14T22:13:20.250Z","t":0.0,
        "endpoint":"tcp://127.0.0.1:7805","id":7,"method":"vantrel.fixture_in","params":[],
        "kwargs":{"timeout_ms":20000},"outcome":"result","result":"in_done","ms":12.0})"));
    EXPECT_EQ(lines[1]["time"], "2023-11-14T21:13:21.762Z");
    EXPECT_DOUBLE_EQ(lines[1]["t"].get<double>(), 1.512);
    EXPECT_EQ(lines[1]["error"], (Value{{"code", -32601}, {"message", "error"}}));
    EXPECT_FALSE(lines[1].contains("result"));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(lines[i + 1]["outcome"], failures[i].second);
    EXPECT_EQ(lines[4]["ms"], 0.0);
}

// Eight threads share one writer: every line arrives whole, none is lost below the limit, and
// past it the file is moved once to "<file>.1" and a new one begun, neither passing the limit.
TEST(TraceWriter, EightThreadsWriteWholeLinesAndTheFileRotatesOnceAtItsLimit) {
    TemporaryDirectory folder;
    const auto path = folder.path() / "trace.jsonl";
    constexpr int threads = 8, callsEach = 200;
    auto writeFromThreads = [&](std::uint64_t maxBytes) {
        auto writer = TraceWriter::forPath(path, maxBytes);
        EXPECT_EQ(writer, TraceWriter::forPath(path, maxBytes)) << "one writer per file";
        CallTrace trace(writer, std::make_shared<VirtualClock>(), "tcp://127.0.0.1:7805");
        std::vector<std::thread> workers;
        for (int worker = 0; worker < threads; ++worker) {
            workers.emplace_back([&trace, worker] {
                for (int call = 0; call < callsEach; ++call) {
                    traceCall(trace, worker * callsEach + call, std::string(call % 50, 'x'));
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
    auto older = path;
    older += ".1";
    ASSERT_TRUE(std::filesystem::exists(older));
    EXPECT_LE(std::filesystem::file_size(path), limit);
    EXPECT_LE(std::filesystem::file_size(older), limit);
    EXPECT_GT(std::filesystem::file_size(older), limit / 2);
    EXPECT_FALSE(traceLines(path).empty());
    EXPECT_FALSE(traceLines(older).empty());
}

// A trace that cannot be written loses its lines, never a call: the client answers as it would
// untraced. The file is tried again at each line, so a folder made later gets the trace.
TEST(TraceWriter, AnUnwritableTraceLeavesCallsAloneAndIsTriedAgain) {
    TemporaryDirectory folder;
    const auto path = folder.path() / "later" / "trace.jsonl";
    ::setenv("KELVANE_TRACE", path.c_str(), 1);
    kelvane::RPCClientWrapper::Options options;
    options.connectGrace = std::chrono::milliseconds(20);
    auto client = kelvane::RPCClientWrapper::initWithIP("127.0.0.1", 1, options);
    ::unsetenv("KELVANE_TRACE");
    ASSERT_NE(client, nullptr);

    std::optional<RpcError> error;
    EXPECT_TRUE(client->rpc("server.mode", &error).is_null());
    EXPECT_EQ(error.value_or(RpcError{}).code, kelvane::jsonrpc::notConnectedError);
    EXPECT_FALSE(std::filesystem::exists(path.parent_path()));
    std::filesystem::create_directories(path.parent_path());
    client->rpc("server.mode", Value::array({"again"}), nullptr);
    auto lines = traceLines(path);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0]["params"], Value::array({"again"}));
    EXPECT_EQ(lines[0]["outcome"], "not_reachable");
    EXPECT_THAT(lines[0]["error"]["message"].get<std::string>(), HasSubstr("127.0.0.1:1"));
    EXPECT_EQ(lines[0]["endpoint"], "tcp://127.0.0.1:1");
}
