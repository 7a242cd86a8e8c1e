// The fault campaign: full fixture cycles through one FixtureControl session and the real
// transport while kelvane-sim injects faults, first one kind at a time, then mixed at random
// (fixed seed) with four threads sharing the session. Each operation must return what is
// documented for the fault it met and never the reply of another call, and once the fault ends
// the same session must work again. The figures it prints are those of docs/reliability.md.
#include "session_fixture.hpp"
#include "simulator_test_support.hpp"
#include "virtual_clock.hpp"

#include <kelvane/FixtureControl.hpp>
#include <kelvane/protocol/error_codes.hpp>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <map>
#include <random>
#include <set>

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;
using namespace std::chrono_literals;
using Stopwatch = std::chrono::steady_clock;
using Results = std::vector<std::string>;

// A call gives up after 300 ms: the client's default wait, or the IO calls' timeout_ms shortened
// to 200 ms plus the 100 ms margin. A late reply lands after that, while the next calls wait.
constexpr auto callWait = 300ms, callMargin = 100ms;
constexpr int shortenedTimeoutMs = 200, lateDelayMs = 450, mixedRounds = 24, sharingThreads = 4;
constexpr std::uint32_t campaignSeed = 20261122;

// Every reply that must never reach an operation (late, misaddressed or malformed) says "stray".
const std::string stray = "stray", none = "<no reply>", ownAnswer = "<own answer>";
const std::string timedOutIoSet = "vantrel.fixture_io_set timed out after 300 ms (code -32100)";

// The IO calls ask the controller for 20 s; here for 200 ms, so a lost reply costs no more.
struct ShortTimeouts final : RpcClient {
    explicit ShortTimeouts(std::shared_ptr<RpcClient> inner) : inner(std::move(inner)) {}
    Value call(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) override {
        Value sent = kwargs;
        if (sent.is_object() && integerValue(sent.value("timeout_ms", Value(0))) >= 1000)
            sent["timeout_ms"] = shortenedTimeoutMs;
        return inner->call(method, args, sent, error);
    }
    void close() override { inner->close(); }
    std::shared_ptr<RpcClient> inner;
};

// One thread's own fan, speeds and probe names: what it reads back can only come from its calls.
struct Worker {
    explicit Worker(int index = 0)
        : fan(index + 1), nextSpeed(1000 * (index + 1)), probePrefix("campaign.probe." + std::to_string(index) + ".") {}
    int fan, nextSpeed, speed = 0, probes = 0;
    std::string probePrefix;
    std::set<std::string> fanSpeeds{"0"};  // what its fan may hold now
    bool controllerMayRestart = false;

    std::string nextProbe() { return probePrefix + std::to_string(++probes); }
};

std::string shown(const Value& reply) { return reply.is_null() ? none : describe(reply); }
std::vector<std::string> fieldsOf(const std::string& summary) {
    std::vector<std::string> fields(1);
    for (char c : summary) c == ';' ? (void)fields.emplace_back() : (void)(fields.back() += c);
    return fields;
}

// A call of a method no controller knows, under a name used once: the error naming it is its own.
std::string probe(RpcClient& transport, const std::string& method, const Value& kwargs = nullptr) {
    std::optional<RpcError> error;
    Value reply = transport.call(method, Value::array(), kwargs, &error);
    if (!reply.is_null()) return "result " + describe(reply);
    if (!error) return "no reply and no error";
    if (error->code == jsonrpc::timeoutError || error->code == jsonrpc::notConnectedError) return none;
    bool own = error->code == jsonrpc::methodNotFoundError && error->message == "method not found: " + method;
    return own ? ownAnswer : "error " + error->text();
}

// A cycle as a station runs it, from the tray OUT and UP. Per operation: what a healthy
// controller makes it return ("{speed}": the speed set), what it returns with no controller at
// all (every call fails at once), and its other documented results, a move's timeout first.
enum class Op { initial, positions, dut, in, down, lockOn, setIO, setFan, getFan, lockOff, up, out, init, probe };
struct Operation {
    const char* name;
    std::function<std::string(FixtureControl&, Worker&, RpcClient&)> run;
    std::string healthy, dead;
    std::vector<std::string> documented;
};
using S = FixtureControl;
using W = Worker;
using C = RpcClient;
auto shownBy(Value (S::*operation)()) {
    return [operation](S& s, W&, C&) { return shown((s.*operation)()); };
}
std::string truth(bool value) { return value ? "true" : "false"; }
const std::vector<Operation> cycle = {
    {"initialFixture", [](S& s, W&, C&) { return truth(s.initialFixture()); }, "true", "false", {}},
    {"checkPositionSensor", [](S& s, W&, C&) { return s.checkPositionSensor(); }, "0;1;1;0", "0;0;0;0", {}},
    {"checkDUTSensor", shownBy(&S::checkDUTSensor), "dut_sensor_on", none, {}},
    {"trayIn",
     shownBy(&S::trayIn),
     "IN OK",
     "Please UP first!",
     {"Fixture in action is executed,but down sensor is not OK\uFF01", "Current state is IN already!",
      "in_refused: tray is not up", none}},
    {"trayDown",
     shownBy(&S::trayDown),
     "DOWN OK",
     "Please IN first!",
     {"Fixture down action is executed,but down sensor is not OK\uFF01", "Can not down,Because DUT state is not right!",
      "down_refused: tray is not in", none}},
    {"fixtureLock(on)", [](S& s, W&, C&) { return shown(s.fixtureLock("on")); }, "done", none, {}},
    {"setIO", [](S& s, W&, C&) { return shown(s.setIO(10, 1)); }, "done", "{unreachable}", {"Fail", timedOutIoSet}},
    {"setFanSpeed", [](S& s, W& w, C&) { return truth(s.setFanSpeed(w.fan, w.speed)); }, "true", "false", {}},
    {"getFanSpeed", [](S& s, W& w, C&) { return s.getFanSpeed(w.fan); }, "{speed}", "(null)", {}},
    {"fixtureLock(off)", [](S& s, W&, C&) { return shown(s.fixtureLock("off")); }, "done", none, {}},
    {"trayUp", shownBy(&S::trayUp), "UP OK", none, {"Fixture up action is executed,but up sensor is not OK\uFF01"}},
    {"trayOut",
     shownBy(&S::trayOut),
     "OUT OK",
     none,
     {"Fixture out action is executed,but out sensor is not OK\uFF01", "Current state is OUT already!",
      "Please UP first!", "out_refused: tray is not up"}},
    {"fixtureInit", shownBy(&S::fixtureInit), "done", none, {}},
    {"probe", [](S&, W& w, C& c) { return probe(c, w.nextProbe()); }, ownAnswer, none, {}},
};
const Operation& row(Op op) { return cycle[static_cast<std::size_t>(op)]; }

// How kelvane-sim answers the first call of a method: the sim.script keys besides "method" and
// "times". The kind of fault, as docs/reliability.md counts them, follows from the action.
Value late(std::optional<Value> reply = {}) {
    Value script = {{"delay_ms", lateDelayMs}};
    if (reply) script["reply"] = *reply;
    return script;
}
Value act(const char* action) { return {{"action", action}}; }
// A reply text sent as it stands: "{id}" is the request's id, "{result}" the model's answer.
Value raw(const char* text) { return {{"action", "raw"}, {"text", text}}; }
Value error(int code, const char* message) {
    return {{"action", "error"}, {"error", {{"code", code}, {"message", message}}}};
}
std::string kindOf(const Value& action) {
    static const std::map<std::string, std::string> kinds = {
        {"reply", "late reply"},        {"garbage", "garbage frame"}, {"wrong_id", "misaddressed reply"},
        {"oversize", "oversize frame"}, {"raw", "wrong JSON type"},   {"error", "error reply"}};
    return kinds.at(action.get<std::string>());
}

// A fault on the first call of `method`, the operation that meets it, and exactly what it returns.
struct Fault {
    Value script;
    std::string_view method;
    Op op;
    std::string expected;
    std::string kind() const { return kindOf(script.value("action", Value("reply"))); }
};

// Each kind on several methods; wrong JSON types one per position of a reply (every variant is the
// codec's unit test): a malformed reply is dropped, a readable one shown as documented.
const std::vector<Fault> catalogue = {
    {late(), m::fixtureIn, Op::in, none},
    {late(stray + " late reading"), m::outSensorRead, Op::positions, "0;0;1;0"},
    {late(), m::fixtureIoSet, Op::setIO, timedOutIoSet},
    {act("garbage"), m::dutSensorRead, Op::dut, none},
    {act("garbage"), m::setFanSpeed, Op::setFan, "false"},
    {{{"action", "wrong_id"}, {"reply", stray}}, m::getFanSpeed, Op::getFan, "(null)"},
    {act("wrong_id"), m::fixtureUp, Op::up, none},
    {act("oversize"), m::fixtureOut, Op::out, none},
    {raw(R"({"jsonrpc":"2.0","id":"{id}","result":"in_done"})"), m::fixtureIn, Op::in, none},
    {raw(R"({"jsonrpc":"2.0","id":{id}.0,"result":1})"), m::upSensorRead, Op::positions, "0;1;0;0"},
    {raw(R"({"jsonrpc":"2.0","result":"done"})"), m::magnetControl, Op::lockOn, none},
    {raw(R"({"jsonrpc":2.0,"id":{id},"result":"stray"})"), m::getFanSpeed, Op::getFan, "(null)"},
    {raw(R"({"id":{id},"result":"dut_sensor_on"})"), m::dutSensorRead, Op::dut, "dut_sensor_on"},
    {raw(R"({"jsonrpc":"2.0","id":{id}})"), m::fixtureUp, Op::up, none},
    {raw(R"({"jsonrpc":"2.0","id":{id},"error":"stray"})"), m::fixtureIoSet, Op::setIO, timedOutIoSet},
    {raw(R"({"jsonrpc":"2.0","id":{id},"error":{"code":"7","message":"odd code"}})"), m::dutSensorRead, Op::dut, none},
    {raw(R"({"jsonrpc":"2.0","id":{id},"error":{"code":7,"message":42}})"), m::fixtureOut, Op::out, none},
    {raw(R"({"jsonrpc":"2.0","id":{id},"error":null,"result":{result}})"), m::getFanSpeed, Op::getFan, "{speed}"},
    {raw(R"({"result":{result},"id":{id},"jsonrpc":"2.0"})"), m::setFanSpeed, Op::setFan, "true"},
    {raw(R"({"jsonrpc":"2.0","id":{id},"result":{"a":1}})"), m::fixtureIn, Op::in, "{\n    a = 1;\n}"},
    {raw(R"({"jsonrpc":"2.0","id":{id},"result":true})"), m::fixtureUp, Op::up, "1"},
    {raw(R"({"jsonrpc":"2.0","id":{id},"result":99999999999})"), m::upSensorRead, Op::positions, "0;1;2147483647;0"},
    {raw(R"({"jsonrpc":"2.0","id":{id},"result":null})"), m::fixtureInitialise, Op::initial, "false"},
    {raw(R"({"jsonrpc":"2.0","id":{id},"result":-1e400})"), m::getFanSpeed, Op::getFan, "-1e400"},
    {error(-32601, "method not found"), m::fixtureInitialise, Op::initial, "false"},
    {error(1, "sensor bus down"), m::upSensorRead, Op::positions, "0;1;0;0"},
    {error(5, "no DUT board"), m::dutSensorRead, Op::dut, none},
    {error(17, "io board busy"), m::fixtureIoSet, Op::setIO, "io board busy (code 17)"},
    {error(-1, "fan stalled"), m::setFanSpeed, Op::setFan, "false"},
    {error(0, "fan unknown"), m::getFanSpeed, Op::getFan, "(null)"},
    {error(-32000, "controller timed out"), m::fixtureUp, Op::up, none},
    {error(2147483647, "largest code"), m::fixtureOut, Op::out, none},
};

// What faults in play may hand to whichever call meets them: their results, and the readings a
// position summary shows besides 0 and 1 (which as a getFanSpeed result would hide a crossed reply).
std::set<std::string> inPlay(const std::vector<const Fault*>& faults) {
    std::set<std::string> play;
    for (const Fault* fault : faults) {
        play.insert(fault->expected);
        for (const auto& field : fault->op == Op::positions ? fieldsOf(fault->expected) : Results{}) {
            if (field != "0" && field != "1") play.insert(field);
        }
    }
    return play;
}

class FaultCampaign : public SimulatorTest {
protected:
    FaultCampaign() : SimulatorTest({"--travel-ms", "0", "--lift-ms", "0"}) {
        auto connect = [this](const std::string& ip, std::uint32_t port) -> std::shared_ptr<RpcClient> {
            RPCClientWrapper::Options options;
            options.defaultTimeout = callWait, options.timeoutMargin = callMargin;
            transport = RPCClientWrapper::initWithIP(ip, port, options);
            return std::make_shared<ShortTimeouts>(transport);
        };
        Platform platform{clock, std::make_shared<CapturingLog>(), root.path(), connect};
        session = FixtureControl::initWithIP(
            {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", sim.port()}}}, {"identifier", "Fixture1"}}, platform);
    }

    // "{speed}" stands for the speed the worker set, "{unreachable}" for setIO's text when the
    // controller is gone ("not reachable", or "connection lost" while it waited).
    bool matches(const std::string& result, const std::string& expected, const Worker& worker) const {
        if (expected == "{unreachable}")
            return result.find(sim.endpoint()) != result.npos && result.ends_with("(code -32101)");
        return result == (expected == "{speed}" ? std::to_string(worker.speed) : expected);
    }
    // One of the operation's own results for any tray state, or what a fault in play delivers.
    bool documented(Op op, const std::string& result, const std::set<std::string>& play, const Worker& worker) {
        const Operation& own = row(op);
        auto known = [&](const std::string& text) { return text == "0" || text == "1" || play.contains(text); };
        auto fields = fieldsOf(result);
        if (result.find(stray) != std::string::npos) return false;
        if (op == Op::positions) return fields.size() == 4 && std::all_of(fields.begin(), fields.end(), known);
        return matches(result, own.healthy, worker) || matches(result, own.dead, worker) ||
               std::find(own.documented.begin(), own.documented.end(), result) != own.documented.end() ||
               (op != Op::probe && play.contains(result)) || (op == Op::getFan && worker.fanSpeeds.contains(result));
    }
    void check(bool right, Op op, const std::string& result, const std::string& context) {
        if (!right) ++wrong, ADD_FAILURE() << context << ": " << row(op).name << " returned \"" << result << "\"";
    }
    // One cycle on this thread; `before` runs ahead of each operation.
    Results runCycle(Worker& worker, const std::function<void(Op)>& before = nullptr) {
        worker.speed = worker.nextSpeed++;
        Results results;
        for (std::size_t i = 0; i < cycle.size(); ++i, ++operations) {
            if (before) before(Op(i));
            results.push_back(cycle[i].run(*session, worker, *transport));
            if (Op(i) != Op::setFan) continue;
            // A refused or lost set may still act; a controller that restarts forgets it.
            if (results.back() == "true" && !worker.controllerMayRestart) worker.fanSpeeds.clear();
            worker.fanSpeeds.insert(std::to_string(worker.speed));
        }
        return results;
    }
    // Exact where `exact` gives a result, documented for the faults in play elsewhere.
    using Exact = std::function<std::optional<std::string>(Op)>;
    void expectCycle(const Worker& worker, const Results& results, const Exact& exact, const std::string& context,
                     const std::set<std::string>& play = {}) {
        for (std::size_t i = 0; i < cycle.size(); ++i) {
            auto expected = exact(Op(i));
            check(expected ? matches(results[i], *expected, worker) : documented(Op(i), results[i], play, worker),
                  Op(i), results[i], context);
        }
    }
    static std::optional<std::string> healthy(Op op) { return row(op).healthy; }
    static std::optional<std::string> any(Op) { return std::nullopt; }

    void script(const Fault& fault) {
        Value description = fault.script;
        description["method"] = std::string(fault.method), description["times"] = 1;
        SimulatorTest::script(description);
    }
    // The fault over, the same session answers again and, after a reset, runs a healthy cycle.
    // Counts by kind the scripted answers that calls met, and gives their number.
    int expectRecovery(const std::string& context) {
        bool answered = eventually([&] { return probe(*transport, worker.nextProbe()) == ownAnswer; });
        check(answered, Op::probe, none, context + ": the session never answered again");
        int met = 0;
        for (const auto& entry : sim.control(m::sim::journal)) {
            if (!entry.contains("script") || describe(entry["method"]).starts_with("campaign.probe.")) continue;
            ++faults[kindOf(entry["script"])], ++met;
        }
        sim.control(m::sim::reset);
        worker.fanSpeeds = {"0"};
        expectCycle(worker, runCycle(worker), healthy, context + ", then healthy");
        return met;
    }

    // Exact for the operation that meets the fault, documented for the rest. A call that waits
    // while a late reply lands gets its own answer.
    void runWithFault(const Fault& fault) {
        script(fault);
        auto results = runCycle(worker, [&](Op op) {
            if (op != Op(std::size_t(fault.op) + 1) || fault.kind() != "late reply") return;
            std::string method = worker.nextProbe();
            SimulatorTest::script({{"method", method}, {"delay_ms", 300}, {"times", 1}});
            std::string result = probe(*transport, method, {{"timeout_ms", 500}});
            check(result == ownAnswer, Op::probe, result, "a call waiting while a late reply lands");
        });
        std::string context = fault.kind() + " on " + std::string(fault.method);
        auto exact = [&](Op op) { return op == fault.op ? std::optional(fault.expected) : std::nullopt; };
        expectCycle(worker, results, exact, context, inPlay({&fault}));
        EXPECT_EQ(expectRecovery(context), 1) << context << ": the scripted fault was not met once";
    }

    void report(const char* part) const {
        auto seconds = std::chrono::duration<double>(Stopwatch::now() - started).count();
        std::cout << "[fault campaign] " << part << ": " << operations << " operations, faults injected:";
        int total = 0;
        for (const auto& [kind, count] : faults) std::cout << " " << kind << " " << count << ",", total += count;
        std::cout << " total " << total << "; wrong results: " << wrong << "; " << seconds << " s\n";
    }

    TemporaryDirectory root;
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();  // poll deadlines pass at once
    std::shared_ptr<RPCClientWrapper> transport;
    std::shared_ptr<FixtureControl> session;
    Worker worker;
    std::atomic<int> operations{0}, wrong{0};
    std::map<std::string, int> faults;  // kind -> faults a call met (main thread only)
    Stopwatch::time_point started = Stopwatch::now();
};

TEST_F(FaultCampaign, EachFaultKindAloneGivesItsDocumentedResultAndTheSessionRecovers) {
    ASSERT_NE(session, nullptr);
    for (const Fault& fault : catalogue) runWithFault(fault);

    // The controller dies before an operation, or while setIO waits for its reply: from then on
    // every call fails at once.
    for (Op killed : {Op::initial, Op::down, Op::up, Op::setIO}) {
        std::string context = "controller dead from " + std::string(row(killed).name);
        bool duringCall = killed == Op::setIO;
        if (duringCall) script({{{"delay_ms", 250}}, m::fixtureIoSet, killed, ""});
        std::thread killer;
        auto results = runCycle(worker, [&](Op op) {
            if (op != killed) return;
            if (duringCall) return void(killer = std::thread([&] { std::this_thread::sleep_for(100ms), sim.kill(); }));
            sim.kill();
            eventually([&] { return !transport->isConnected(); });
        });
        if (killer.joinable()) killer.join();
        expectCycle(
            worker, results, [&](Op op) { return op < killed ? row(op).healthy : row(op).dead; }, context);
        ++faults["dead controller"];
        sim.restart();
        expectRecovery(context);
    }

    // Killed and started again while the tray moves, after the move's first sensor read: the fresh
    // controller knows no move, so the sensor never confirms, unless the start (OUT and UP) is the target.
    const std::pair<Op, const char*> moves[] = {{Op::in, "in"}, {Op::down, "down"}, {Op::up, "up"}, {Op::out, "out"}};
    for (const auto& move : moves) {
        auto results = runCycle(worker, [&](Op op) {
            if (op != move.first) return;
            sim.control(m::sim::set, Value::array({{{"stall", move.second}}}));
            clock->atNextSleep([&] { sim.kill(), sim.restart(); });
        });
        const Operation& moved = row(move.first);
        const std::string context = "restart during " + std::string(moved.name),
                          result = results[std::size_t(move.first)];
        bool startsThere = move.first == Op::up || move.first == Op::out;
        check(result == moved.documented.front() || (startsThere && result == moved.healthy), move.first, result,
              context);
        expectCycle(
            worker, results, [&](Op op) { return op < move.first ? healthy(op) : any(op); }, context);
        ++faults["controller restart mid-move"];
        expectRecovery(context);
    }

    // Last: before the transport reconnects after a protocol error, this one ends the session.
    runWithFault(
        {{{"action", "oversize"}, {"bytes", (std::int64_t{64} << 20) + 1}}, m::getFanSpeed, Op::getFan, "(null)"});
    report("one kind at a time");
}

TEST_F(FaultCampaign, MixedFaultsAtRandomWhileFourThreadsShareTheSession) {
    ASSERT_NE(session, nullptr);
    std::mt19937 random(campaignSeed);                        // the same sequence with every standard library
    std::map<std::string, std::vector<const Fault*>> byKind;  // so that rare kinds come up as often
    for (const Fault& fault : catalogue) byKind[fault.kind()].push_back(&fault);
    std::vector<Worker> workers;
    for (int i = 1; i <= sharingThreads; ++i) workers.emplace_back(i);
    for (int round = 0; round < mixedRounds; ++round) {
        const std::string context = "mixed round " + std::to_string(round);
        const auto pick = random() % 8;  // 0: the controller dies, 1: it restarts under load
        std::vector<const Fault*> chosen;
        for (auto count = pick > 1 ? 2 + random() % 3 : 0; count > 0; --count) {
            const auto& ofKind = std::next(byKind.begin(), long(random() % byKind.size()))->second;
            chosen.push_back(ofKind[random() % ofKind.size()]);
            script(*chosen.back());
        }
        const auto faultDelay = std::chrono::milliseconds(random() % 30);
        std::vector<Results> results(sharingThreads);
        std::vector<std::thread> threads;
        for (int i = 0; i < sharingThreads; ++i) {
            workers[i].controllerMayRestart = pick <= 1;
            threads.emplace_back([&, i] { results[i] = runCycle(workers[i]); });
        }
        if (pick <= 1) std::this_thread::sleep_for(faultDelay), sim.kill();
        if (pick == 1) sim.restart();
        for (auto& thread : threads) thread.join();
        if (pick == 0) sim.restart();

        for (int i = 0; i < sharingThreads; ++i)
            expectCycle(workers[i], results[i], any, context + ", thread " + std::to_string(i), inPlay(chosen));
        if (pick <= 1) ++faults[pick == 0 ? "dead controller" : "controller restart under load"];
        for (auto& each : workers) each.fanSpeeds = {"0"};
        expectRecovery(context);
    }
    report("mixed, four threads");
}

}  // namespace
}  // namespace kelvane::testing
