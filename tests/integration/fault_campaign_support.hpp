// Pieces of the fault campaign (fault_campaign_test.cpp): a session over the real transport with
// short waits, one fixture cycle as a station runs it, and what each operation may show a host.
#pragma once

#include "virtual_clock.hpp"

#include "rpc/json_rpc.hpp"
#include "rpc/methods.hpp"
#include "rpc/rpc_client_wrapper.hpp"

#include <kelvane/FixtureControl.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kelvane::testing::campaign {

// A call without "timeout_ms" gives up after callWait; one with it after its value plus the margin.
inline constexpr std::chrono::milliseconds callWait{300};
inline constexpr std::chrono::milliseconds callMargin{100};
// The session's 20 s IO calls are sent with this instead, so they wait as long as any other call.
inline constexpr int shortenedTimeoutMs = 200;
inline constexpr long long longTimeoutMs = 1000;

// Marks every reply that must never reach an operation (late, misaddressed or malformed).
inline const std::string stray = "stray";
inline const std::string noReply = "<no reply>";
inline const std::string probeAnswered = "<own answer>";

// The session's IO calls ask the controller for 20 s; here they ask for a fraction, so a reply
// that never comes costs them no more than it costs a sensor read. What an operation returns does
// not depend on the length of the wait.
class ShortTimeouts final : public RpcClient {
public:
    explicit ShortTimeouts(std::shared_ptr<RPCClientWrapper> transport) : transport_(std::move(transport)) {}

    Value call(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) override {
        Value sent = kwargs;
        if (sent.is_object() && sent.contains("timeout_ms") && integerValue(sent["timeout_ms"]) >= longTimeoutMs) {
            sent["timeout_ms"] = shortenedTimeoutMs;
        }
        return transport_->call(method, args, sent, error);
    }
    void close() override { transport_->close(); }

private:
    std::shared_ptr<RPCClientWrapper> transport_;
};

// Virtual time, so poll deadlines pass at once, that can run a hook at the next sleep: in a tray
// move, the moment after the move was acknowledged and its sensor read once.
class HookedClock final : public Clock {
public:
    void atNextSleep(std::function<void()> hook) {
        std::lock_guard lock(mutex_);
        hook_ = std::move(hook);
    }
    double now() override { return time_.now(); }
    double monotonic() override { return time_.monotonic(); }
    void sleepFor(double seconds) override {
        std::function<void()> hook;
        {
            std::lock_guard lock(mutex_);
            hook = std::exchange(hook_, nullptr);
        }
        if (hook) hook();
        time_.sleepFor(seconds);
    }

private:
    std::mutex mutex_;
    std::function<void()> hook_;
    VirtualClock time_;
};

class NoLog final : public LogSink {
public:
    void write(std::string_view) override {}
};

// The operations of one cycle, in the order a station runs them, from the tray OUT and UP. The
// probe calls a method no controller knows, under a name used once, through the session's client:
// the error that names it can only be its own.
enum class Op { initialFixture, positions, dut, trayIn, trayDown, lockOn, setIO, setFan, getFan,
                lockOff, trayUp, trayOut, fixtureInit, probe };
inline constexpr std::array cycle = {Op::initialFixture, Op::positions, Op::dut,    Op::trayIn, Op::trayDown,
                                     Op::lockOn,         Op::setIO,     Op::setFan, Op::getFan, Op::lockOff,
                                     Op::trayUp,         Op::trayOut,   Op::fixtureInit, Op::probe};

inline std::string_view nameOf(Op op) {
    constexpr std::array names = {"initialFixture", "checkPositionSensor", "checkDUTSensor", "trayIn",
                                  "trayDown", "fixtureLock(on)", "setIO", "setFanSpeed", "getFanSpeed",
                                  "fixtureLock(off)", "trayUp", "trayOut", "fixtureInit", "probe"};
    return names[static_cast<std::size_t>(op)];
}

inline const std::string upTimeout = "Fixture up action is executed,but up sensor is not OK\uFF01";
inline const std::string downTimeout = "Fixture down action is executed,but down sensor is not OK\uFF01";
inline const std::string inTimeout = "Fixture in action is executed,but down sensor is not OK\uFF01";
inline const std::string outTimeout = "Fixture out action is executed,but out sensor is not OK\uFF01";

// One thread's share of the campaign: its own fan, speeds and probe names, so that whatever it
// reads back can only have come from its own calls.
struct Worker {
    int fan = 1;
    int nextSpeed = 1000;
    int speed = 0;
    std::string probePrefix = "campaign.probe.";
    int probes = 0;
    std::set<std::string> fanSpeeds{"0"};  // what its fan may hold now
    bool controllerMayRestart = false;     // a fresh controller knows no fan speed

    std::string nextProbe() { return probePrefix + std::to_string(++probes); }
    void noteFanSet(const std::string& result) {
        if (result == "true") fanSpeeds.clear();  // a refused or lost set may still have acted
        fanSpeeds.insert(std::to_string(speed));
    }
    void controllerReset() { fanSpeeds = {"0"}; }
};

// The printed form of a reply as a host sees it; "<no reply>" for none.
inline std::string shown(const Value& reply) { return reply.is_null() ? noReply : describe(reply); }

inline std::string probe(FixtureControl& session, const std::string& method, const Value& kwargs = nullptr) {
    std::optional<RpcError> error;
    Value reply = session.fixtureControlClient->call(method, Value::array(), kwargs, &error);
    if (!reply.is_null()) return "result " + describe(reply);
    if (!error) return "no reply and no error";
    if (error->code == jsonrpc::timeoutError || error->code == jsonrpc::notConnectedError) return noReply;
    if (error->code == jsonrpc::methodNotFoundError && error->message == "method not found: " + method) {
        return probeAnswered;
    }
    return "error " + error->text();
}

inline std::string perform(FixtureControl& session, Op op, Worker& worker) {
    switch (op) {
    case Op::initialFixture: return session.initialFixture() ? "true" : "false";
    case Op::positions: return session.checkPositionSensor();
    case Op::dut: return shown(session.checkDUTSensor());
    case Op::trayIn: return shown(session.trayIn());
    case Op::trayDown: return shown(session.trayDown());
    case Op::lockOn: return shown(session.fixtureLock("on"));
    case Op::setIO: return shown(session.setIO(10, 1));
    case Op::setFan: return session.setFanSpeed(worker.fan, worker.speed) ? "true" : "false";
    case Op::getFan: return session.getFanSpeed(worker.fan);
    case Op::lockOff: return shown(session.fixtureLock("off"));
    case Op::trayUp: return shown(session.trayUp());
    case Op::trayOut: return shown(session.trayOut());
    case Op::fixtureInit: return shown(session.fixtureInit());
    case Op::probe: return probe(session, worker.nextProbe());
    }
    return "unknown operation";
}

// What a healthy controller makes a cycle return, from the tray OUT and UP.
inline std::vector<std::string> healthyCycle(const Worker& worker) {
    return {"true", "0;1;1;0", "dut_sensor_on", "IN OK", "DOWN OK", "done", "done", "true",
            std::to_string(worker.speed), "done", "UP OK", "OUT OK", "done", probeAnswered};
}

// What each operation returns while the controller is gone: every call fails at once.
inline std::string withoutController(Op op, const std::string& endpoint) {
    switch (op) {
    case Op::initialFixture:
    case Op::setFan: return "false";
    case Op::positions: return "0;0;0;0";
    case Op::trayIn: return "Please UP first!";
    case Op::trayDown: return "Please IN first!";
    case Op::getFan: return "(null)";
    case Op::setIO: return "controller at " + endpoint + " is not reachable (code -32001)";
    default: return noReply;
    }
}

// Replies that faults in play deliver to whichever call meets them, besides the model's own.
struct InPlay {
    std::set<std::string> replies;   // printed forms
    std::set<std::string> readings;  // as a position summary prints them
    std::set<std::string> errors;    // "<message> (code <code>)", as setIO returns them

    void deliver(const Value& result) {
        replies.insert(shown(result));
        readings.insert(std::to_string(std::clamp<long long>(integerValue(result), INT32_MIN, INT32_MAX)));
    }
};

inline bool isClientError(const std::string& result, std::string_view method, const std::string& endpoint) {
    auto timedOut = std::string(method) + " timed out after " +
                    std::to_string((shortenedTimeoutMs + callMargin.count())) + " ms (code -32000)";
    bool unreachable = result.find(endpoint) != std::string::npos && result.ends_with("(code -32001)");
    return result == timedOut || unreachable;
}

inline bool positionsDocumented(const std::string& summary, const InPlay& play) {
    std::vector<std::string> fields(1);
    for (char c : summary) {
        if (c == ';') fields.emplace_back();
        else fields.back() += c;
    }
    return fields.size() == 4 && std::all_of(fields.begin(), fields.end(), [&](const std::string& field) {
               return field == "0" || field == "1" || play.readings.contains(field);
           });
}

// Whether `result` is one the operation may return with these faults about: one of its own
// results for any tray state, no reply, or a reply a fault in play delivers. Never a stray reply,
// never another call's answer.
inline bool documented(Op op, const std::string& result, const InPlay& play, const Worker& worker,
                       const std::string& endpoint) {
    if (result.find(stray) != std::string::npos) return false;
    auto among = [&](std::initializer_list<std::string_view> own) {
        return std::find(own.begin(), own.end(), result) != own.end() || play.replies.contains(result);
    };
    switch (op) {
    case Op::initialFixture:
    case Op::setFan: return result == "true" || result == "false";
    case Op::positions: return positionsDocumented(result, play);
    case Op::dut: return among({"dut_sensor_on", noReply});
    case Op::trayIn:
        return among({"IN OK", inTimeout, "Please UP first!", "Current state is IN already!",
                      "in_refused: tray is not up", noReply});
    case Op::trayDown:
        return among({"DOWN OK", downTimeout, "Please IN first!", "Can not down,Because DUT state is not right!",
                      "down_refused: tray is not in", noReply});
    case Op::trayUp: return among({"UP OK", upTimeout, noReply});
    case Op::trayOut:
        return among({"OUT OK", outTimeout, "Current state is OUT already!", "Please UP first!",
                      "out_refused: tray is not up", noReply});
    case Op::lockOn:
    case Op::lockOff:
    case Op::fixtureInit: return among({"done", noReply});
    case Op::setIO:
        return among({"done", "Fail"}) || play.errors.contains(result) ||
               isClientError(result, methods::fixtureIoSet, endpoint);
    case Op::getFan:
        return result == "(null)" || worker.fanSpeeds.contains(result) || play.replies.contains(result) ||
               (worker.controllerMayRestart && result == "0");
    case Op::probe: return result == probeAnswered || result == noReply;
    }
    return false;
}

// Counts kept while the campaign runs; a wrong result is also a test failure where it is seen.
struct Tally {
    std::atomic<int> operations{0};
    std::atomic<int> wrong{0};
    std::map<std::string, int> faults;  // kind -> faults injected (main thread only)

    void check(bool right, Op op, const std::string& result, const std::string& context) {
        if (right) return;
        ++wrong;
        ADD_FAILURE() << context << ": " << nameOf(op) << " returned \"" << result << "\"";
    }
    std::string summary() const {
        std::string text = std::to_string(operations) + " operations, faults injected:";
        int total = 0;
        for (const auto& [kind, count] : faults) {
            text += " " + kind + " " + std::to_string(count) + ",";
            total += count;
        }
        return text + " total " + std::to_string(total) + "; wrong results: " + std::to_string(wrong);
    }
};

using OpHook = std::function<void(Op)>;

// One cycle on this thread; the results in the order of `cycle`.
inline std::vector<std::string> runCycle(FixtureControl& session, Worker& worker, Tally& tally,
                                         const OpHook& before = nullptr, const OpHook& after = nullptr) {
    worker.speed = worker.nextSpeed++;
    std::vector<std::string> results;
    for (Op op : cycle) {
        if (before) before(op);
        results.push_back(perform(session, op, worker));
        ++tally.operations;
        if (op == Op::setFan) worker.noteFanSet(results.back());
        if (after) after(op);
    }
    return results;
}

}  // namespace kelvane::testing::campaign
