// The fault campaign: full fixture cycles through one FixtureControl session and the real
// transport while kelvane-sim injects faults, first one kind at a time, then mixed at random
// (fixed seed) with four threads sharing the session. Each operation must return what is
// documented for the fault it met and never the reply of another call, and once the fault ends
// the same session must work again. The figures it prints are those of docs/reliability.md.
#include "session_fixture.hpp"
#include "simulator_process.hpp"
#include "virtual_clock.hpp"

#include "rpc/json_rpc.hpp"
#include "rpc/methods.hpp"
#include "rpc/rpc_client_wrapper.hpp"

#include <kelvane/FixtureControl.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <thread>

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;
using std::chrono::milliseconds;
using namespace std::chrono_literals;
using Stopwatch = std::chrono::steady_clock;

// A call gives up after 300 ms: the client's default wait, or the IO calls' timeout_ms shortened
// to 200 ms plus the 100 ms margin. A late reply lands after that, while the next calls wait.
constexpr milliseconds callWait{300}, callMargin{100};
constexpr int shortenedTimeoutMs = 200, lateDelayMs = 450;
constexpr long long beyondMessageLimit = (std::int64_t{64} << 20) + 1;  // ZeroMQ ends the connection
constexpr auto recoveryBound = std::chrono::seconds(5);
constexpr std::uint32_t campaignSeed = 20261122;
constexpr int mixedRounds = 24, sharingThreads = 4;

// Every reply that must never reach an operation (late, misaddressed or malformed) says "stray".
const std::string stray = "stray", noReply = "<no reply>", ownAnswer = "<own answer>";
const std::string timedOutIoSet = "vantrel.fixture_io_set timed out after 300 ms (code -32000)";

// The session's IO calls ask the controller for 20 s; here for 200 ms, so a lost reply costs them
// no more than any other call. What an operation returns does not depend on the wait.
struct ShortTimeouts final : RpcClient {
    explicit ShortTimeouts(std::shared_ptr<RPCClientWrapper> transport) : transport(std::move(transport)) {}
    Value call(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) override {
        Value sent = kwargs;
        if (sent.is_object() && integerValue(sent.value("timeout_ms", Value(0))) >= 1000)
            sent["timeout_ms"] = shortenedTimeoutMs;
        return transport->call(method, args, sent, error);
    }
    void close() override { transport->close(); }
    std::shared_ptr<RPCClientWrapper> transport;
};

// One thread's share: its own fan, speeds and probe names, so whatever it reads back can only
// come from its own calls.
struct Worker {
    int fan = 1, nextSpeed = 1000, speed = 0, probes = 0;
    std::string probePrefix = "campaign.probe.";
    std::set<std::string> fanSpeeds{"0"};  // what its fan may hold now
    bool controllerMayRestart = false;     // a fresh controller knows no fan speed

    std::string nextProbe() { return probePrefix + std::to_string(++probes); }
};

std::string shown(const Value& reply) { return reply.is_null() ? noReply : describe(reply); }

// A method no controller knows, under a name used once: the error that names it is its own.
std::string probe(FixtureControl& session, const std::string& method, const Value& kwargs = nullptr) {
    std::optional<RpcError> error;
    Value reply = session.fixtureControlClient()->call(method, Value::array(), kwargs, &error);
    if (!reply.is_null()) return "result " + describe(reply);
    if (!error) return "no reply and no error";
    if (error->code == jsonrpc::timeoutError || error->code == jsonrpc::notConnectedError) return noReply;
    bool own = error->code == jsonrpc::methodNotFoundError && error->message == "method not found: " + method;
    return own ? ownAnswer : "error " + error->text();
}

const std::string upTimeout = "Fixture up action is executed,but up sensor is not OK\uFF01";
const std::string downTimeout = "Fixture down action is executed,but down sensor is not OK\uFF01";
const std::string inTimeout = "Fixture in action is executed,but down sensor is not OK\uFF01";
const std::string outTimeout = "Fixture out action is executed,but out sensor is not OK\uFF01";

// A cycle as a station runs it, from the tray OUT and UP. Per operation: what a healthy
// controller makes it return ("{speed}": the speed set), what it returns with no controller at
// all (every call fails at once), and its other documented results.
enum class Op { initialFixture, positions, dut, trayIn, trayDown, lockOn, setIO, setFan, getFan, lockOff,
                trayUp, trayOut, fixtureInit, probe, count };
struct Operation {
    const char* name;
    std::function<std::string(FixtureControl&, Worker&)> run;
    std::string healthy, dead;
    std::vector<std::string> documented;
};
using S = FixtureControl;
using W = Worker;
const std::vector<Operation> cycle = {
    {"initialFixture", [](S& s, W&) { return s.initialFixture() ? "true" : "false"; }, "true", "false", {}},
    {"checkPositionSensor", [](S& s, W&) { return s.checkPositionSensor(); }, "0;1;1;0", "0;0;0;0", {}},
    {"checkDUTSensor", [](S& s, W&) { return shown(s.checkDUTSensor()); }, "dut_sensor_on", noReply, {}},
    {"trayIn", [](S& s, W&) { return shown(s.trayIn()); }, "IN OK", "Please UP first!",
     {inTimeout, "Current state is IN already!", "in_refused: tray is not up", noReply}},
    {"trayDown", [](S& s, W&) { return shown(s.trayDown()); }, "DOWN OK", "Please IN first!",
     {downTimeout, "Can not down,Because DUT state is not right!", "down_refused: tray is not in", noReply}},
    {"fixtureLock(on)", [](S& s, W&) { return shown(s.fixtureLock("on")); }, "done", noReply, {}},
    {"setIO", [](S& s, W&) { return shown(s.setIO(10, 1)); }, "done", "{unreachable}", {"Fail", timedOutIoSet}},
    {"setFanSpeed", [](S& s, W& w) { return s.setFanSpeed(w.fan, w.speed) ? "true" : "false"; }, "true", "false", {}},
    {"getFanSpeed", [](S& s, W& w) { return s.getFanSpeed(w.fan); }, "{speed}", "(null)", {}},
    {"fixtureLock(off)", [](S& s, W&) { return shown(s.fixtureLock("off")); }, "done", noReply, {}},
    {"trayUp", [](S& s, W&) { return shown(s.trayUp()); }, "UP OK", noReply, {upTimeout}},
    {"trayOut", [](S& s, W&) { return shown(s.trayOut()); }, "OUT OK", noReply,
     {outTimeout, "Current state is OUT already!", "Please UP first!", "out_refused: tray is not up"}},
    {"fixtureInit", [](S& s, W&) { return shown(s.fixtureInit()); }, "done", noReply, {}},
    {"probe", [](S& s, W& w) { return probe(s, w.nextProbe()); }, ownAnswer, noReply, {}},
};
const Operation& row(Op op) { return cycle[static_cast<std::size_t>(op)]; }

// setIO's text when the controller is gone: "not reachable" or "connection lost", code -32001.
bool unreachable(const std::string& result, const std::string& endpoint) {
    return result.find(endpoint) != std::string::npos && result.ends_with("(code -32001)");
}
using Results = std::vector<std::string>;
Results fieldsOf(const std::string& summary) {
    Results fields(1);
    for (char c : summary) c == ';' ? (void)fields.emplace_back() : (void)(fields.back() += c);
    return fields;
}

// How kelvane-sim answers the first call of a method: the kind, as docs/reliability.md counts
// them, and the sim.script keys besides "method" and "times".
struct How { std::string kind; Value script; };
How late(std::optional<Value> reply = {}) {
    Value script = {{"delay_ms", lateDelayMs}};
    if (reply) script["reply"] = *reply;
    return {"late reply", script};
}
How act(std::string kind, const char* action) { return {std::move(kind), {{"action", action}}}; }
// A reply text sent as it stands: "{id}" is the request's id, "{result}" the model's answer.
How raw(const char* text) { return {"wrong JSON type", {{"action", "raw"}, {"text", text}}}; }
How error(int code, const char* message) {
    return {"error reply", {{"action", "error"}, {"error", {{"code", code}, {"message", message}}}}};
}
// A fault on the first call of `method`, the operation of a cycle that meets it, and exactly
// what that operation returns ("{speed}": the speed set).
struct Fault { How how; std::string_view method; Op op; std::string expected; };

// Faults that ZeroMQ's own limits do not involve, each kind on several methods. Wrong JSON
// types, one per position of a reply: anything but the request's integer id is another call's
// reply, a malformed reply is dropped, a readable one reaches the operation, which shows it as
// documented. (Every variant of each position is the codec's unit test.)
std::vector<Fault> catalogue() {
    const std::string& none = noReply;
    return {
        {late(), m::fixtureIn, Op::trayIn, none},
        {late(stray + " late reading"), m::outSensorRead, Op::positions, "0;0;1;0"},
        {late(), m::fixtureIoSet, Op::setIO, timedOutIoSet},
        {act("garbage frame", "garbage"), m::dutSensorRead, Op::dut, none},
        {act("garbage frame", "garbage"), m::setFanSpeed, Op::setFan, "false"},
        {{"misaddressed reply", {{"action", "wrong_id"}, {"reply", stray}}}, m::getFanSpeed, Op::getFan, "(null)"},
        {act("misaddressed reply", "wrong_id"), m::fixtureUp, Op::trayUp, none},
        {act("oversize frame", "oversize"), m::fixtureOut, Op::trayOut, none},
        {raw(R"({"jsonrpc":"2.0","id":"{id}","result":"in_done"})"), m::fixtureIn, Op::trayIn, none},
        {raw(R"({"jsonrpc":"2.0","id":{id}.0,"result":1})"), m::upSensorRead, Op::positions, "0;1;0;0"},
        {raw(R"({"jsonrpc":"2.0","result":"done"})"), m::magnetControl, Op::lockOn, none},
        {raw(R"({"jsonrpc":2.0,"id":{id},"result":"stray"})"), m::getFanSpeed, Op::getFan, "(null)"},
        {raw(R"({"id":{id},"result":"dut_sensor_on"})"), m::dutSensorRead, Op::dut, "dut_sensor_on"},
        {raw(R"({"jsonrpc":"2.0","id":{id}})"), m::fixtureUp, Op::trayUp, none},
        {raw(R"({"jsonrpc":"2.0","id":{id},"error":"stray"})"), m::fixtureIoSet, Op::setIO, timedOutIoSet},
        {raw(R"({"jsonrpc":"2.0","id":{id},"error":{"code":"7","message":"odd code"}})"), m::dutSensorRead, Op::dut,
         none},
        {raw(R"({"jsonrpc":"2.0","id":{id},"error":{"code":7,"message":42}})"), m::fixtureOut, Op::trayOut, none},
        {raw(R"({"jsonrpc":"2.0","id":{id},"error":null,"result":{result}})"), m::getFanSpeed, Op::getFan, "{speed}"},
        {raw(R"({"result":{result},"id":{id},"jsonrpc":"2.0"})"), m::setFanSpeed, Op::setFan, "true"},
        {raw(R"({"jsonrpc":"2.0","id":{id},"result":{"a":1}})"), m::fixtureIn, Op::trayIn, R"({"a":1})"},
        {raw(R"({"jsonrpc":"2.0","id":{id},"result":true})"), m::fixtureUp, Op::trayUp, "1"},
        {raw(R"({"jsonrpc":"2.0","id":{id},"result":99999999999})"), m::upSensorRead, Op::positions,
         "0;1;2147483647;0"},
        {raw(R"({"jsonrpc":"2.0","id":{id},"result":null})"), m::fixtureInitialise, Op::initialFixture, "false"},
        {raw(R"({"jsonrpc":"2.0","id":{id},"result":-1e400})"), m::getFanSpeed, Op::getFan, "-1e400"},
        {error(-32601, "method not found"), m::fixtureInitialise, Op::initialFixture, "false"},
        {error(1, "sensor bus down"), m::upSensorRead, Op::positions, "0;1;0;0"},
        {error(5, "no DUT board"), m::dutSensorRead, Op::dut, none},
        {error(17, "io board busy"), m::fixtureIoSet, Op::setIO, "io board busy (code 17)"},
        {error(-1, "fan stalled"), m::setFanSpeed, Op::setFan, "false"},
        {error(0, "fan unknown"), m::getFanSpeed, Op::getFan, "(null)"},
        {error(-32000, "controller timed out"), m::fixtureUp, Op::trayUp, none},
        {error(2147483647, "largest code"), m::fixtureOut, Op::trayOut, none},
    };
}

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

class FaultCampaign : public ::testing::Test {
protected:
    FaultCampaign() {
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

    std::string resolve(const std::string& text, const Worker& worker) const {
        if (text == "{speed}") return std::to_string(worker.speed);
        return text == "{unreachable}" ? "controller at " + sim.endpoint() + " is not reachable (code -32001)" : text;
    }
    // One of the operation's own results for any tray state, or what a fault in play delivers.
    // Never a stray reply, never another call's answer.
    bool documented(Op op, const std::string& result, const std::set<std::string>& play, const Worker& worker) {
        const Operation& own = row(op);
        auto known = [&](const std::string& text) { return text == "0" || text == "1" || play.contains(text); };
        auto fields = fieldsOf(result);
        if (result.find(stray) != std::string::npos) return false;
        if (op == Op::positions) return fields.size() == 4 && std::all_of(fields.begin(), fields.end(), known);
        return result == resolve(own.healthy, worker) || result == resolve(own.dead, worker) ||
               std::find(own.documented.begin(), own.documented.end(), result) != own.documented.end() ||
               (op != Op::probe && play.contains(result)) || (op == Op::setIO && unreachable(result, sim.endpoint())) ||
               (op == Op::getFan && worker.fanSpeeds.contains(result)) ||
               (op == Op::getFan && worker.controllerMayRestart && result == "0");
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
            results.push_back(cycle[i].run(*session, worker));
            if (Op(i) != Op::setFan) continue;
            if (results.back() == "true") worker.fanSpeeds.clear();  // a refused or lost set may still act
            worker.fanSpeeds.insert(std::to_string(worker.speed));
        }
        return results;
    }
    // Exact where `expected` names the operation, documented for the faults in play elsewhere.
    void expectCycle(const Results& results, const std::map<Op, std::string>& expected, const std::string& context,
                     const std::set<std::string>& play = {}) {
        for (std::size_t i = 0; i < cycle.size(); ++i) {
            auto exact = expected.find(Op(i));
            check(exact == expected.end() ? documented(Op(i), results[i], play, worker)
                                          : results[i] == resolve(exact->second, worker),
                  Op(i), results[i], context);
        }
    }
    // Healthy results before operation `split`, and from there on, if asked, those with no controller.
    static std::map<Op, std::string> healthy(Op split = Op::count, bool deadAfter = false) {
        std::map<Op, std::string> expected;
        for (std::size_t i = 0; i < cycle.size(); ++i) {
            if (Op(i) < split || deadAfter) expected[Op(i)] = Op(i) < split ? cycle[i].healthy : cycle[i].dead;
        }
        return expected;
    }

    void script(const Fault& fault) {
        Value description = fault.how.script;
        description["method"] = std::string(fault.method), description["times"] = 1;
        sim.control("sim.script", Value::array({description}));
    }
    // Calls of `method` a script answered since the journal was last cleared.
    int scriptedCalls(std::string_view method) {
        int count = 0;
        for (const auto& entry : sim.control("sim.journal"))
            count += entry["method"] == std::string(method) && entry.contains("script");
        return count;
    }

    // The fault over, the same session answers within the bound and runs a healthy cycle.
    void expectRecovery(const std::string& context) {
        bool answered = false;
        for (auto deadline = Stopwatch::now() + recoveryBound; !answered && Stopwatch::now() < deadline;) {
            answered = probe(*session, worker.nextProbe()) == ownAnswer;
            if (!answered) std::this_thread::sleep_for(20ms);
        }
        check(answered, Op::probe, noReply, context + ": the session never answered again");
        sim.control("sim.reset");
        worker.fanSpeeds = {"0"};
        expectCycle(runCycle(worker), healthy(), context + ", then healthy");
    }

    // Exact for the operation that meets the fault, documented for the rest. A call that waits
    // while a late reply lands gets its own answer.
    void runWithFault(const Fault& fault) {
        script(fault);
        auto results = runCycle(worker, [&](Op op) {
            if (op != Op(std::size_t(fault.op) + 1) || fault.how.kind != "late reply") return;
            std::string method = worker.nextProbe();
            sim.control("sim.script", Value::array({{{"method", method}, {"delay_ms", 300}, {"times", 1}}}));
            std::string result = probe(*session, method, {{"timeout_ms", 500}});
            check(result == ownAnswer, Op::probe, result, "a call waiting while a late reply lands");
        });
        std::string context = fault.how.kind + " on " + std::string(fault.method);
        expectCycle(results, {{fault.op, fault.expected}}, context, inPlay({&fault}));
        const int met = scriptedCalls(fault.method);
        EXPECT_EQ(met, 1) << context << ": the scripted fault was met " << met << " times";
        faults[fault.how.kind] += met;
        expectRecovery(context);
    }

    void report(const char* part) const {
        auto seconds = std::chrono::duration<double>(Stopwatch::now() - started).count();
        std::cout << "[fault campaign] " << part << ": " << operations << " operations, faults injected:";
        int total = 0;
        for (const auto& [kind, count] : faults) std::cout << " " << kind << " " << count << ",", total += count;
        std::cout << " total " << total << "; wrong results: " << wrong << "; " << seconds << " s\n";
        EXPECT_EQ(wrong, 0);
    }

    SimulatorProcess sim{{"--travel-ms", "0", "--lift-ms", "0"}};
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
    expectCycle(runCycle(worker), healthy(), "before any fault");
    for (const Fault& fault : catalogue()) runWithFault(fault);

    // The controller dies before an operation, or while setIO waits for its reply: from then on
    // every call fails at once.
    for (Op killed : {Op::initialFixture, Op::trayDown, Op::trayUp, Op::setIO}) {
        std::string context = "controller dead from " + std::string(row(killed).name);
        bool duringCall = killed == Op::setIO;
        if (duringCall) script({{"late reply", {{"delay_ms", 250}}}, m::fixtureIoSet, killed, ""});
        std::thread killer;
        auto results = runCycle(worker, [&](Op op) {
            if (op != killed) return;
            if (duringCall) return void(killer = std::thread([&] { std::this_thread::sleep_for(100ms), sim.kill(); }));
            sim.kill();
            auto deadline = Stopwatch::now() + recoveryBound;
            while (transport->isConnected() && Stopwatch::now() < deadline) std::this_thread::sleep_for(5ms);
        });
        if (killer.joinable()) killer.join();
        auto expected = healthy(killed, true);
        const std::string& setIO = results[std::size_t(Op::setIO)];
        if (duringCall) expected.erase(Op::setIO), check(unreachable(setIO, sim.endpoint()), killed, setIO, context);
        expectCycle(results, expected, context);
        ++faults["dead controller"];
        sim.restart();
        expectRecovery(context);
    }

    // Killed and started again while the tray moves, after the move's first sensor read: the fresh
    // controller knows no move, so the sensor never confirms, unless the start (OUT and UP) is the target.
    const std::tuple<Op, const char*, std::string> moves[] = {
        {Op::trayIn, "in", inTimeout}, {Op::trayDown, "down", downTimeout},
        {Op::trayUp, "up", upTimeout}, {Op::trayOut, "out", outTimeout}};
    for (const auto& [move, stall, timeout] : moves) {
        // Copies: clang 14 lets no lambda capture a structured binding.
        auto results = runCycle(worker, [&, target = move, axis = stall](Op op) {
            if (op != target) return;
            sim.control("sim.set", Value::array({{{"stall", axis}}}));
            clock->atNextSleep([&] { sim.kill(), sim.restart(); });
        });
        std::string context = "restart during " + std::string(row(move).name), result = results[std::size_t(move)];
        bool startsThere = move == Op::trayUp || move == Op::trayOut;
        check(result == timeout || (startsThere && result == row(move).healthy), move, result, context);
        expectCycle(results, healthy(move), context);
        ++faults["controller restart mid-move"];
        expectRecovery(context);
    }

    // Last: before the transport reconnects after a protocol error, this one ends the session.
    runWithFault({{"oversize frame", {{"action", "oversize"}, {"bytes", beyondMessageLimit}}}, m::getFanSpeed, Op::getFan,
                  "(null)"});
    report("one kind at a time");
}

TEST_F(FaultCampaign, MixedFaultsAtRandomWhileFourThreadsShareTheSession) {
    ASSERT_NE(session, nullptr);
    std::mt19937 random(campaignSeed);  // the same sequence with every standard library
    const auto all = catalogue();
    std::map<std::string, std::vector<const Fault*>> byKind;  // so that rare kinds come up as often
    for (const Fault& fault : all) byKind[fault.how.kind].push_back(&fault);
    std::vector<Worker> workers(sharingThreads);
    for (int i = 0; i < sharingThreads; ++i) {
        workers[i].fan = i + 2, workers[i].nextSpeed = 1000 * (i + 2);
        workers[i].probePrefix = "campaign.probe.thread" + std::to_string(i) + ".";
    }
    for (int round = 0; round < mixedRounds; ++round) {
        const std::string context = "mixed round " + std::to_string(round);
        const auto pick = random() % 8;  // 0: the controller dies, 1: it restarts under load
        std::vector<const Fault*> chosen;
        for (auto count = pick > 1 ? 2 + random() % 3 : 0; count > 0; --count) {
            const auto& ofKind = std::next(byKind.begin(), long(random() % byKind.size()))->second;
            chosen.push_back(ofKind[random() % ofKind.size()]);
            script(*chosen.back());
        }
        const auto faultDelay = milliseconds(random() % 30);
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

        const auto play = inPlay(chosen);
        for (int i = 0; i < sharingThreads; ++i) {
            for (std::size_t k = 0; k < cycle.size(); ++k)
                check(documented(Op(k), results[i][k], play, workers[i]), Op(k), results[i][k],
                      context + ", thread " + std::to_string(i));
        }
        if (pick <= 1) ++faults[pick == 0 ? "dead controller" : "controller restart under load"];
        std::map<std::string_view, int> used;  // scripts of one method are used in the order given
        for (const Fault* fault : chosen) {
            auto [at, fresh] = used.try_emplace(fault->method, 0);
            if (fresh) at->second = scriptedCalls(fault->method);
            if (at->second-- > 0) ++faults[fault->how.kind];
        }
        for (auto& each : workers) each.fanSpeeds = {"0"};
        expectRecovery(context);
    }
    report("mixed, four threads");
}

}  // namespace
}  // namespace kelvane::testing
