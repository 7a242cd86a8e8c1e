// The fault campaign: full fixture cycles through one FixtureControl session and the real
// transport while kelvane-sim injects faults, first one kind at a time, then mixed at random
// (fixed seed) with four threads sharing the session. Each operation must return what is
// documented for the fault it met and never the reply of another call, and once the fault ends
// the same session must work again. The figures it prints are those of docs/reliability.md.
#include "fault_campaign_support.hpp"
#include "session_fixture.hpp"
#include "simulator_process.hpp"

#include <gtest/gtest.h>

#include <iostream>
#include <random>
#include <thread>

namespace kelvane::testing::campaign {
namespace {

namespace m = kelvane::methods;
using std::chrono::milliseconds;
using Stopwatch = std::chrono::steady_clock;

// Later than any call waits (callWait), early enough to land while the next calls wait.
constexpr int lateDelayMs = 450;
// Past the 64 MiB message limit of the client's socket: ZeroMQ ends the connection.
constexpr long long beyondMessageLimit = (std::int64_t{64} << 20) + 1;
// Bounds how long "the session works again" may take once the controller is healthy.
constexpr auto recoveryBound = std::chrono::seconds(5);

constexpr std::uint32_t campaignSeed = 20261122;
constexpr int mixedRounds = 24;
constexpr int sharingThreads = 4;

const std::string timedOutIoSet = "vantrel.fixture_io_set timed out after 300 ms (code -32000)";

struct Fault {
    std::string kind;  // as docs/reliability.md counts them
    std::string_view method;
    Value script;  // sim.script keys besides "method" and "times"
    // What the first operation of the cycle that calls `method` returns; "{speed}": the speed set.
    std::string expected;
    std::optional<Value> delivered;  // the result it hands that call, when it is not the model's
    std::optional<std::string> errorText;

    std::string label() const { return kind + " on " + std::string(method); }
};

Fault scripted(std::string kind, std::string_view method, Value script, std::string expected) {
    return {std::move(kind), method, std::move(script), std::move(expected), std::nullopt, std::nullopt};
}

Fault late(std::string_view method, std::string expected, std::optional<Value> reply = std::nullopt) {
    Value script = {{"delay_ms", lateDelayMs}};
    if (reply) script["reply"] = *reply;
    return scripted("late reply", method, std::move(script), std::move(expected));
}

// A reply text sent as it stands: "{id}" is the request's id, "{result}" the model's answer.
Fault raw(std::string_view method, std::string text, std::string expected,
          std::optional<Value> delivered = std::nullopt) {
    Fault fault = scripted("wrong JSON type", method, {{"action", "raw"}, {"text", std::move(text)}},
                           std::move(expected));
    fault.delivered = std::move(delivered);
    return fault;
}

Fault errorReply(std::string_view method, int code, const std::string& message, std::string expected) {
    Fault fault = scripted("error reply", method,
                           {{"action", "error"}, {"error", {{"code", code}, {"message", message}}}},
                           std::move(expected));
    fault.errorText = message + " (code " + std::to_string(code) + ")";
    return fault;
}

// Each fault hits the first call of its method in a cycle, so this operation meets it.
Op firstCaller(std::string_view method) {
    const std::pair<std::string_view, Op> callers[] = {
        {m::fixtureInitialise, Op::initialFixture}, {m::inSensorRead, Op::positions},
        {m::outSensorRead, Op::positions},          {m::upSensorRead, Op::positions},
        {m::downSensorRead, Op::positions},         {m::dutSensorRead, Op::dut},
        {m::fixtureIn, Op::trayIn},                 {m::fixtureDown, Op::trayDown},
        {m::magnetControl, Op::lockOn},             {m::fixtureIoSet, Op::setIO},
        {m::setFanSpeed, Op::setFan},               {m::getFanSpeed, Op::getFan},
        {m::fixtureUp, Op::trayUp},                 {m::fixtureOut, Op::trayOut}};
    for (const auto& [name, op] : callers) {
        if (name == method) return op;
    }
    return Op::probe;
}

// Faults that ZeroMQ's own limits do not involve, with the result each one's operation returns.
std::vector<Fault> faultCatalogue() {
    const std::string nothing = noReply;
    return {
        late(m::fixtureIn, nothing),
        late(m::getFanSpeed, "(null)"),
        late(m::outSensorRead, "0;0;1;0", stray + " late reading"),
        late(m::fixtureIoSet, timedOutIoSet),
        late(m::magnetControl, nothing, stray + " late lock"),

        scripted("garbage frame", m::dutSensorRead, {{"action", "garbage"}}, nothing),
        scripted("garbage frame", m::setFanSpeed, {{"action", "garbage"}}, "false"),
        scripted("garbage frame", m::fixtureDown, {{"action", "garbage"}}, nothing),
        scripted("misaddressed reply", m::getFanSpeed, {{"action", "wrong_id"}, {"reply", stray}}, "(null)"),
        scripted("misaddressed reply", m::fixtureUp, {{"action", "wrong_id"}}, nothing),
        scripted("oversize frame", m::getFanSpeed, {{"action", "oversize"}}, "(null)"),
        scripted("oversize frame", m::fixtureOut, {{"action", "oversize"}}, nothing),

        // The id: anything but the request's integer id is another call's reply, or none.
        raw(m::fixtureIn, R"({"jsonrpc":"2.0","id":"{id}","result":"in_done"})", nothing),
        raw(m::upSensorRead, R"({"jsonrpc":"2.0","id":{id}.0,"result":1})", "0;1;0;0"),
        raw(m::getFanSpeed, R"({"jsonrpc":"2.0","id":null,"result":"stray"})", "(null)"),
        raw(m::magnetControl, R"({"jsonrpc":"2.0","result":"done"})", nothing),
        raw(m::fixtureInitialise, R"({"jsonrpc":"2.0","id":[{id}],"result":"done"})", "false"),
        // "jsonrpc" other than "2.0" (leaving it out is allowed), and no result nor error: malformed, dropped.
        raw(m::fixtureInitialise, R"({"jsonrpc":"1.0","id":{id},"result":"done"})", "false"),
        raw(m::getFanSpeed, R"({"jsonrpc":2.0,"id":{id},"result":"stray"})", "(null)"),
        raw(m::dutSensorRead, R"({"id":{id},"result":"dut_sensor_on"})", "dut_sensor_on"),
        raw(m::fixtureUp, R"({"jsonrpc":"2.0","id":{id}})", nothing),
        // "error" that is not an object: malformed, dropped. Odd members inside one: no reply.
        raw(m::fixtureIoSet, R"({"jsonrpc":"2.0","id":{id},"error":"stray"})", timedOutIoSet),
        raw(m::magnetControl, R"({"jsonrpc":"2.0","id":{id},"error":5})", nothing),
        raw(m::setFanSpeed, R"({"jsonrpc":"2.0","id":{id},"error":[1,"stray"]})", "false"),
        raw(m::dutSensorRead, R"({"jsonrpc":"2.0","id":{id},"error":{"code":"7","message":"odd code"}})", nothing),
        raw(m::fixtureOut, R"({"jsonrpc":"2.0","id":{id},"error":{"code":7,"message":42}})", nothing),
        raw(m::getFanSpeed, R"({"jsonrpc":"2.0","id":{id},"error":null,"result":{result}})", "{speed}"),
        raw(m::setFanSpeed, R"({"result":{result},"id":{id},"jsonrpc":"2.0"})", "true"),
        // The result: any JSON value reaches the operation, which shows it as it documents.
        raw(m::fixtureIn, R"({"jsonrpc":"2.0","id":{id},"result":{"a":1}})", R"({"a":1})", Value{{"a", 1}}),
        raw(m::fixtureIoSet, R"({"jsonrpc":"2.0","id":{id},"result":[1,"done"]})", R"([1,"done"])",
            Value::array({1, "done"})),
        raw(m::dutSensorRead, R"({"jsonrpc":"2.0","id":{id},"result":7})", "7", Value(7)),
        raw(m::fixtureUp, R"({"jsonrpc":"2.0","id":{id},"result":true})", "1", Value(true)),
        raw(m::inSensorRead, R"({"jsonrpc":"2.0","id":{id},"result":"1"})", "1;1;1;0", Value("1")),
        raw(m::downSensorRead, R"({"jsonrpc":"2.0","id":{id},"result":1.0})", "0;1;1;1", Value(1.0)),
        raw(m::outSensorRead, R"({"jsonrpc":"2.0","id":{id},"result":{"value":1}})", "0;0;1;0",
            Value{{"value", 1}}),
        raw(m::upSensorRead, R"({"jsonrpc":"2.0","id":{id},"result":99999999999})", "0;1;2147483647;0",
            Value(99999999999LL)),
        raw(m::fixtureInitialise, R"({"jsonrpc":"2.0","id":{id},"result":null})", "false", Value(nullptr)),
        raw(m::getFanSpeed, R"({"jsonrpc":"2.0","id":{id},"result":"fast"})", "fast", Value("fast")),

        errorReply(m::fixtureInitialise, -32601, "method not found", "false"),
        errorReply(m::upSensorRead, 1, "sensor bus down", "0;1;0;0"),
        errorReply(m::dutSensorRead, 5, "no DUT board", nothing),
        errorReply(m::fixtureIn, 2, "motor fault", nothing),
        errorReply(m::fixtureDown, 3, "motor fault", nothing),
        errorReply(m::magnetControl, 4, "magnet fault", nothing),
        errorReply(m::fixtureIoSet, 17, "io board busy", "io board busy (code 17)"),
        errorReply(m::setFanSpeed, -1, "fan stalled", "false"),
        errorReply(m::getFanSpeed, 0, "fan unknown", "(null)"),
        errorReply(m::fixtureUp, -32000, "controller timed out", nothing),
        errorReply(m::fixtureOut, 2147483647, "largest code", nothing),
    };
}

InPlay inPlay(const std::vector<const Fault*>& faults) {
    InPlay play;
    for (const Fault* fault : faults) {
        if (fault->delivered) play.deliver(*fault->delivered);
        if (fault->errorText) play.errors.insert(*fault->errorText);
    }
    return play;
}

class FaultCampaign : public ::testing::Test {
protected:
    FaultCampaign() {
        Platform platform;
        platform.clock = clock;
        platform.log = std::make_shared<NoLog>();
        platform.fileRoot = root.path();
        platform.connect = [this](const std::string& ip, std::uint32_t port) -> std::shared_ptr<RpcClient> {
            RPCClientWrapper::Options options;
            options.defaultTimeout = callWait;
            options.timeoutMargin = callMargin;
            transport = RPCClientWrapper::initWithIP(ip, port, options);
            return std::make_shared<ShortTimeouts>(transport);
        };
        Value topology = {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", sim.port()}}}, {"identifier", "Fixture1"}};
        session = FixtureControl::initWithIP(topology, platform);
        prober.probePrefix = "campaign.await.";
    }

    void report(const char* part) const {
        auto seconds = std::chrono::duration<double>(Stopwatch::now() - started).count();
        std::cout << "[fault campaign] " << part << ": " << tally.summary() << "; " << seconds << " s\n";
        EXPECT_EQ(tally.wrong, 0);
    }

    void script(const Fault& fault) {
        Value description = fault.script;
        description["method"] = std::string(fault.method);
        description["times"] = 1;
        sim.control("sim.script", Value::array({description}));
    }
    // Calls of `method` a script answered since the journal was last cleared.
    int scriptedCalls(std::string_view method) {
        int count = 0;
        for (const auto& entry : sim.control("sim.journal")) {
            count += entry["method"] == std::string(method) && entry.contains("script");
        }
        return count;
    }

    bool awaitHealthy() {
        for (auto deadline = Stopwatch::now() + recoveryBound; Stopwatch::now() < deadline;) {
            if (probe(*session, prober.nextProbe()) == probeAnswered) return true;
            std::this_thread::sleep_for(milliseconds(20));
        }
        return false;
    }
    void awaitDisconnected() {
        for (auto deadline = Stopwatch::now() + recoveryBound; transport->isConnected();) {
            if (Stopwatch::now() > deadline) {
                ADD_FAILURE() << "the client did not notice the controller die";
                return;
            }
            std::this_thread::sleep_for(milliseconds(5));
        }
    }

    void expectCycle(const std::vector<std::string>& results, const std::vector<std::string>& expected,
                     const std::string& context) {
        for (std::size_t i = 0; i < cycle.size(); ++i) {
            tally.check(results[i] == expected[i], cycle[i], results[i],
                        context + ", expected \"" + expected[i] + "\"");
        }
    }
    // The fault over, the same session runs a healthy cycle from the start state.
    void expectRecovery(const std::string& context) {
        tally.check(awaitHealthy(), Op::probe, noReply, context + ": the session never answered again");
        sim.control("sim.reset");
        worker.controllerReset();
        auto results = runCycle(*session, worker, tally);
        expectCycle(results, healthyCycle(worker), context + ", then healthy");
    }

    // One scripted fault in a cycle: exact for the operation that meets it, documented for the rest.
    void runWithFault(const Fault& fault) {
        script(fault);
        Op target = firstCaller(fault.method);
        auto afterFault = [&](Op op) {
            if (op == target && fault.kind == "late reply") callWhileLateReplyLands();
        };
        auto results = runCycle(*session, worker, tally, nullptr, afterFault);
        InPlay play = inPlay({&fault});
        for (std::size_t i = 0; i < cycle.size(); ++i) {
            Op op = cycle[i];
            if (op != target) {
                tally.check(documented(op, results[i], play, worker, sim.endpoint()), op, results[i], fault.label());
                continue;
            }
            std::string expected = fault.expected == "{speed}" ? std::to_string(worker.speed) : fault.expected;
            tally.check(results[i] == expected, op, results[i], fault.label() + ", expected \"" + expected + "\"");
        }
        tally.faults[fault.kind] += scriptedCalls(fault.method);
        expectRecovery(fault.label());
    }

    // A call that waits while the late reply arrives gets its own answer.
    void callWhileLateReplyLands() {
        std::string method = worker.nextProbe();
        sim.control("sim.script", Value::array({{{"method", method}, {"delay_ms", 300}, {"times", 1}}}));
        std::string result = probe(*session, method, {{"timeout_ms", 500}});
        ++tally.operations;
        tally.check(result == probeAnswered, Op::probe, result, "a call waiting while a late reply lands");
    }

    void killBeforeOperations() {
        for (Op killedBefore : {Op::initialFixture, Op::trayDown, Op::trayUp}) {
            bool dead = false;
            std::vector<bool> deadAt;
            auto results = runCycle(*session, worker, tally, [&](Op op) {
                                        if (op == killedBefore) {
                                            sim.kill();
                                            awaitDisconnected();
                                            dead = true;
                                        }
                                        deadAt.push_back(dead);
                                    });
            auto expected = healthyCycle(worker);
            for (std::size_t i = 0; i < cycle.size(); ++i) {
                if (deadAt[i]) expected[i] = withoutController(cycle[i], sim.endpoint());
            }
            expectCycle(results, expected, "controller dead from " + std::string(nameOf(killedBefore)));
            ++tally.faults["dead controller"];
            sim.restart();
            expectRecovery("dead controller");
        }
    }

    // The controller dies while setIO waits for its reply: the call fails at once.
    void killDuringCall() {
        sim.control("sim.script", Value::array({{{"method", m::fixtureIoSet}, {"delay_ms", 250}, {"times", 1}}}));
        std::thread killer;
        auto results = runCycle(*session, worker, tally,
                                [&](Op op) {
                                    if (op == Op::setIO) killer = std::thread([&] {
                                        std::this_thread::sleep_for(milliseconds(100));
                                        sim.kill();
                                    });
                                },
                                [&](Op op) {
                                    if (op == Op::setIO) killer.join();
                                });
        auto healthy = healthyCycle(worker);
        for (std::size_t i = 0; i < cycle.size(); ++i) {
            Op op = cycle[i];
            bool right = op < Op::setIO    ? results[i] == healthy[i]
                         : op == Op::setIO ? isClientError(results[i], "", sim.endpoint())
                                           : results[i] == withoutController(op, sim.endpoint());
            tally.check(right, op, results[i], "controller dead during setIO");
        }
        ++tally.faults["dead controller"];
        sim.restart();
        expectRecovery("dead controller during a call");
    }

    // Killed and started again while the tray moves: the fresh controller knows no move, so the
    // sensor never confirms, unless the tray's start position (OUT and UP) is the move's target.
    static bool startsThere(Op move) { return move == Op::trayUp || move == Op::trayOut; }
    static const std::string& timeoutOf(Op move) {
        if (move == Op::trayIn) return inTimeout;
        if (move == Op::trayDown) return downTimeout;
        return move == Op::trayUp ? upTimeout : outTimeout;
    }
    void restartMidMove() {
        const std::pair<Op, std::string> moves[] = {
            {Op::trayIn, "in"}, {Op::trayDown, "down"}, {Op::trayUp, "up"}, {Op::trayOut, "out"}};
        for (const auto& [move, stall] : moves) {
            auto results = runCycle(*session, worker, tally, [&](Op op) {
                                        if (op != move) return;
                                        sim.control("sim.set", Value::array({{{"stall", stall}}}));
                                        clock->atNextSleep([&] {
                                            sim.kill();
                                            sim.restart();
                                        });
                                    });
            std::string context = "restart during " + std::string(nameOf(move));
            auto healthy = healthyCycle(worker);
            bool moved = false;
            for (std::size_t i = 0; i < cycle.size(); ++i) {
                Op op = cycle[i];
                bool healthyResult = results[i] == healthy[i];
                bool right = moved ? documented(op, results[i], {}, worker, sim.endpoint()) : healthyResult;
                if (op == move) right = results[i] == timeoutOf(move) || (startsThere(move) && healthyResult);
                moved = moved || op == move;
                tally.check(right, op, results[i], context);
            }
            ++tally.faults["controller restart mid-move"];
            worker.controllerReset();
            expectRecovery(context);
        }
    }

    SimulatorProcess sim{{"--travel-ms", "0", "--lift-ms", "0"}};
    TemporaryDirectory root;
    std::shared_ptr<HookedClock> clock = std::make_shared<HookedClock>();
    std::shared_ptr<RPCClientWrapper> transport;
    std::shared_ptr<FixtureControl> session;
    Worker worker;
    Worker prober;  // probes until the session answers again
    Tally tally;
    Stopwatch::time_point started = Stopwatch::now();
};

TEST_F(FaultCampaign, EachFaultKindAloneGivesItsDocumentedResultAndTheSessionRecovers) {
    ASSERT_NE(session, nullptr);
    auto results = runCycle(*session, worker, tally);
    expectCycle(results, healthyCycle(worker), "before any fault");

    for (const Fault& fault : faultCatalogue()) runWithFault(fault);

    // A number beyond double range does not make the reply unreadable.
    std::string method = worker.nextProbe();
    sim.control("sim.script", Value::array({{{"method", method}, {"action", "raw"},
                                              {"text", R"({"jsonrpc":"2.0","id":{id},"result":-1e400})"}}}));
    std::optional<RpcError> error;
    Value reply = session->fixtureControlClient->call(method, Value::array(), nullptr, &error);
    ++tally.operations;
    ++tally.faults["wrong JSON type"];
    tally.check(!error && !reply.is_number(), Op::probe, error ? error->text() : describe(reply),
                "a reply with a number beyond double range");

    killBeforeOperations();
    killDuringCall();
    restartMidMove();

    // Last: before the transport reconnects after a protocol error, this one ends the session.
    runWithFault(scripted("oversize frame", m::getFanSpeed, {{"action", "oversize"}, {"bytes", beyondMessageLimit}},
                          "(null)"));
    report("one kind at a time");
}

TEST_F(FaultCampaign, MixedFaultsAtRandomWhileFourThreadsShareTheSession) {
    ASSERT_NE(session, nullptr);
    std::mt19937 random(campaignSeed);  // the same sequence with every standard library
    const auto catalogue = faultCatalogue();
    std::map<std::string, std::vector<const Fault*>> byKind;  // so that rare kinds come up as often
    for (const Fault& fault : catalogue) byKind[fault.kind].push_back(&fault);
    std::vector<const std::vector<const Fault*>*> kinds;
    for (const auto& [kind, faults] : byKind) kinds.push_back(&faults);
    std::vector<Worker> workers(sharingThreads);
    for (int i = 0; i < sharingThreads; ++i) {
        workers[i].fan = i + 2;
        workers[i].nextSpeed = 1000 * (i + 2);
        workers[i].probePrefix = "campaign.probe.thread" + std::to_string(i) + ".";
    }

    for (int round = 0; round < mixedRounds; ++round) {
        const auto pick = random() % 8;
        std::string controllerFault = pick == 0   ? "dead controller"
                                      : pick == 1 ? "controller restart under load"
                                                  : "";
        std::vector<const Fault*> chosen;
        if (controllerFault.empty()) {
            for (auto count = 2 + random() % 3; count > 0; --count) {
                const auto& ofKind = *kinds[random() % kinds.size()];
                chosen.push_back(ofKind[random() % ofKind.size()]);
                script(*chosen.back());
            }
        }
        const auto faultDelay = milliseconds(random() % 30);
        for (auto& each : workers) each.controllerMayRestart = !controllerFault.empty();

        std::vector<std::vector<std::string>> results(sharingThreads);
        std::vector<std::thread> threads;
        for (int i = 0; i < sharingThreads; ++i) {
            threads.emplace_back([&, i] { results[i] = runCycle(*session, workers[i], tally); });
        }
        if (!controllerFault.empty()) {
            std::this_thread::sleep_for(faultDelay);
            sim.kill();
            if (pick == 1) sim.restart();
        }
        for (auto& thread : threads) thread.join();
        if (pick == 0) sim.restart();

        const InPlay play = inPlay(chosen);
        const std::string context = "mixed round " + std::to_string(round);
        for (int i = 0; i < sharingThreads; ++i) {
            for (std::size_t k = 0; k < cycle.size(); ++k) {
                tally.check(documented(cycle[k], results[i][k], play, workers[i], sim.endpoint()), cycle[k],
                            results[i][k], context + ", thread " + std::to_string(i));
            }
        }
        if (!controllerFault.empty()) ++tally.faults[controllerFault];
        std::map<std::string_view, int> used;  // scripts of one method are used in the order given
        for (const Fault* fault : chosen) {
            auto [at, fresh] = used.try_emplace(fault->method, 0);
            if (fresh) at->second = scriptedCalls(fault->method);
            if (at->second-- > 0) ++tally.faults[fault->kind];
        }
        for (auto& each : workers) each.controllerReset();
        expectRecovery(context);
    }
    report("mixed, four threads");
}

}  // namespace
}  // namespace kelvane::testing::campaign
