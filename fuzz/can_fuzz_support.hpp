// What the CAN targets share: a bridge whose controller board answers "can.recv" from the input,
// and services that keep nothing (millions of runs must not grow the process).
#pragma once

#include "can/bridge.hpp"
#include "fuzz_session.hpp"

#include <cstddef>
#include <deque>
#include <memory>

namespace kelvane::fuzz {

class InstantClock final : public Clock {
public:
    double now() override { return seconds_; }
    double monotonic() override { return seconds_; }
    void sleepFor(double seconds) override { seconds_ += seconds; }

private:
    double seconds_ = 0;
};

// Answers each "can.recv" with the next queued reply, then with nothing; every other call "done".
class ScriptedBoard final : public RpcClient {
public:
    std::deque<Value> replies;

    Value call(const std::string& method, const Value&, const Value&, RpcErrorSlot) override {
        if (method != "can.recv") return "done";
        if (replies.empty()) return nullptr;
        Value next = std::move(replies.front());
        replies.pop_front();
        return next;
    }
};

// The monitor logs' folders do not exist below the file root, so their lines are lost.
struct FuzzBridge {
    std::shared_ptr<ScriptedBoard> board = std::make_shared<ScriptedBoard>();
    Platform platform{std::make_shared<InstantClock>(), std::make_shared<DiscardingLog>(),
                      "/nonexistent-kelvane-fuzz-root", nullptr};
    can::Bridge bridge{platform, board, Value("Fixture1")};
};

}  // namespace kelvane::fuzz
