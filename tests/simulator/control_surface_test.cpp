// The simulated fixture's answers to what clients send, its journal and its scripted answers, in
// process: each request goes to the fixture as the message a client sends.
#include "in_process_fixture.hpp"

#include "process_resources.hpp"

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;
using namespace std::chrono_literals;

const std::string fanSpeed(m::getFanSpeed);

// "method not found: <method>" for unknown methods is what the fault campaign's probe relies on.
TEST(SimulatedRequestsTest, UnreadableOnesAreDroppedOrRejectedTheOthersJournaledInOrderButNotControlCalls) {
    InProcessFixture fixture;
    for (const char* dropped : {"not json", "[1]", R"({"jsonrpc":"2.0","method":"server.mode","params":[]})"})
        EXPECT_FALSE(fixture.send(dropped)) << dropped << ": no id to answer";
    for (const char* invalid : {R"({"id":5,"params":[]})", R"({"id":5,"method":"server.mode","params":{}})",
                                R"({"id":5,"method":"server.mode","kwargs":[]})"}) {
        auto rejected = jsonrpc::decodeReply(fixture.send(invalid).value().message);
        ASSERT_TRUE(rejected && rejected->error) << invalid;
        EXPECT_EQ(std::pair(rejected->id, rejected->error->code),
                  std::pair(std::int64_t{5}, jsonrpc::invalidRequestError));
    }
    fixture.call(m::fixtureIoSet, {{{10, 1}}}, {{"timeout_ms", 20000}});
    EXPECT_EQ(fixture.ask("vantrel.teleport").second->text(), "method not found: vantrel.teleport (code -32601)");
    EXPECT_EQ(fixture.failure("sim.teleport"), jsonrpc::methodNotFoundError);
    fixture.call(m::sim::script, {{{"method", m::serverMode}, {"action", "no_reply"}, {"times", 1}}});
    fixture.failure(m::serverMode);
    EXPECT_EQ(
        fixture.call(m::sim::journal),
        (Value{{{"method", m::fixtureIoSet}, {"params", {{{10, 1}}}}, {"kwargs", {{"timeout_ms", 20000}}}},
               {{"method", "vantrel.teleport"}, {"params", Value::array()}, {"kwargs", nullptr}},
               {{"method", m::serverMode}, {"params", Value::array()}, {"kwargs", nullptr}, {"script", "no_reply"}}}));
    EXPECT_EQ(Value::array({fixture.call(m::sim::clearJournal), fixture.call(m::sim::journal),
                            fixture.call(m::serverMode), fixture.call(m::sim::reset), fixture.call(m::sim::journal)}),
              Value::array({"done", Value::array(), "normal", "done", Value::array()}));
}

// As the journal once kept requests (its newest 100,000 as JSON values), a flood grew the
// simulator by 90 MiB; now it holds what its bound allows (--journal-mb, 4 MiB by default) and
// nothing else a request brings stays. A bound of 128 KiB and requests of 512 bytes show both
// at little cost: some 200 entries kept of 8,000. Under a sanitizer resident size says nothing:
// the journal alone is checked there, after 1,500.
TEST(SimulatedJournalTest, AFloodOfRequestsLeavesTheJournalWithinItsMemoryBound) {
    constexpr std::size_t bound = 128 << 10;
    InProcessFixture fixture({}, bound);
    const std::string filler(512, 'x');
    auto send = [&](int first, int end) {
        for (int k = first; k < end; ++k) fixture.send(jsonrpc::encodeRequest({k, "test.flood", {k, filler}, nullptr}));
    };
    constexpr int flood = builtWithoutSanitizers ? 8'000 : 1'500;  // a sanitizer's tenfold cost
    send(0, 1000);
    const auto before = residentBytes();
    send(1000, flood);
    const bool measured = builtWithoutSanitizers && before;
    if (measured) {
        EXPECT_LT(static_cast<long long>(*residentBytes()) - static_cast<long long>(*before), 2ll << 20);
    }

    const Value journal = fixture.call(m::sim::journal);
    EXPECT_GT(journal.size(), 100u) << "the newest entries fill the bound";
    EXPECT_LT(journal.dump().size(), bound) << journal.size() << " entries";
    EXPECT_EQ(journal.front()["params"][0], flood - static_cast<int>(journal.size())) << "the newest, in order";
    EXPECT_EQ(journal.back()["params"][0], flood - 1);
    fixture.send(jsonrpc::encodeRequest({flood, "test.flood", {flood, std::string(bound, 'x')}, nullptr}));
    EXPECT_EQ(fixture.call(m::sim::journal).size(), 1u) << "a request beyond the bound: kept alone";
    if (!measured) GTEST_SKIP() << "resident size not checked under a sanitizer or without /proc";
}

TEST(SimulatedScriptsTest, ABadBatchAddsNoneScriptsOverrideTheModelForTheirTimesInOrderOrLetItActOrSwallowIt) {
    InProcessFixture fixture;
    auto fan = [&] { return fixture.call(fanSpeed, {1}); };
    Value batch = {{{"method", fanSpeed}, {"reply", 1}}, {{"method", fanSpeed}, {"action", "explode"}}};
    const auto error = fixture.ask(m::sim::script, Value::array({batch})).second.value_or(RpcError{});
    EXPECT_EQ(error.code, jsonrpc::invalidParamsError);
    EXPECT_NE(error.message.find("script 2"), std::string::npos) << error.message;
    for (Value bad : {Value{{"method", fanSpeed}, {"action", "error"}}, Value{{"method", fanSpeed}, {"times", 0}},
                      Value{{"method", fanSpeed}, {"delay", 5}}, Value{{"reply", 1}},
                      Value{{"method", fanSpeed}, {"action", "raw"}}}) {
        auto refused = fixture.ask(m::sim::script, Value::array({bad})).second;
        EXPECT_TRUE(refused && refused->message.find("no script given") == std::string::npos) << bad.dump();
    }
    EXPECT_EQ(fan(), 0);

    const Value boom = {{"code", 7}, {"message", "boom"}};
    fixture.call(m::sim::script,
                 {{{"method", fanSpeed}, {"action", "reply"}, {"reply", "first"}, {"times", 2}},
                  {{"method", fanSpeed}, {"action", "error"}, {"error", boom}, {"times", 2}, {"delay_ms", 600}}});
    EXPECT_EQ(Value::array({fan(), fan()}), Value::array({"first", "first"}));
    EXPECT_EQ(fixture.ask(fanSpeed, {1}).second.value_or(RpcError{}).text(), "boom (code 7)");
    EXPECT_EQ(fixture.send(jsonrpc::encodeRequest({1, fanSpeed, {1}, nullptr}))->delay, 600ms);
    EXPECT_EQ(fan(), 0) << "scripts used up: the model answers again";

    fixture.call(m::sim::script, {{{"method", fanSpeed}, {"reply", nullptr}}});
    EXPECT_EQ(Value::array({fan(), fan()}), Value::array({nullptr, nullptr})) << "a null reply, kept without times";
    fixture.call(m::sim::clearScripts);
    EXPECT_EQ(fan(), 0);
    fixture.call(m::sim::script, {{{"method", fanSpeed}, {"reply", 1}}});
    fixture.call(m::sim::reset);
    EXPECT_EQ(fan(), 0) << "a reset clears the scripts";

    fixture.call(m::sim::script, {{{"method", m::magnetControl}, {"action", "reply"}, {"times", 1}},
                                  {{"method", m::magnetControl}, {"action", "no_reply"}, {"times", 1}}});
    EXPECT_EQ(fixture.call(m::magnetControl, {"on"}), "done") << "a reply without a value: the model's";
    EXPECT_FALSE(fixture.send(jsonrpc::encodeRequest({1, std::string(m::magnetControl), {"off"}, nullptr})));
    EXPECT_EQ(fixture.call(m::sim::state)["lock"], "on") << "the model acted, then a swallowed request did not";
}

}  // namespace
}  // namespace kelvane::testing
