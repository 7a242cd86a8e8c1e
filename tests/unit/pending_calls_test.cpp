// The table of calls waiting for replies, without sockets: many callers at once, one of them
// reading for all, must each get their own reply; late replies and closing reach nobody else.
#include "rpc/pending_calls.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace kelvane {
namespace {

using std::chrono::steady_clock;
using namespace std::chrono_literals;

const RpcError closedError{-32102, "RPC client closed"};

// A caller as the client runs one: register, wait, and when the turn to read falls to it, answer
// every request taken (each with its own id, in reverse order, plus a reply nobody waits for)
// until its own is answered. Returns what it got.
Value callThrough(PendingCalls& calls, std::int64_t id, std::atomic<int>& strayAccepted) {
    CallerPresence presence(calls);
    if (!presence.entered()) return "closed";
    Registration registration(calls, id);
    calls.add(id, std::to_string(id));
    auto deadline = steady_clock::now() + 10s;
    while (calls.wait(id, deadline) == PendingCalls::Wait::readerTurn) {
        ReaderTurn turn(calls);
        while (!calls.answered(id) && steady_clock::now() < deadline) {
            auto taken = calls.takeUnsent();
            for (auto request = taken.rbegin(); request != taken.rend(); ++request) {
                calls.complete(request->id, {std::stoll(request->text), std::nullopt});
            }
            if (calls.complete(-id, {"stray", std::nullopt})) ++strayAccepted;
            std::this_thread::yield();
        }
    }
    auto outcome = calls.remove(id);
    if (!outcome) return "timed out";
    return outcome->error ? Value(outcome->error->message) : outcome->result;
}

TEST(PendingCalls, ManyCallersTakingTurnsToReadEachGetTheirOwnReply) {
    PendingCalls calls(closedError);
    std::atomic<int> strayAccepted{0};
    std::vector<std::future<std::string>> callers;
    for (int thread = 0; thread < 12; ++thread) {
        callers.push_back(std::async(std::launch::async, [&, thread] {
            for (std::int64_t id = thread * 1000 + 1; id <= thread * 1000 + 200; ++id) {
                Value got = callThrough(calls, id, strayAccepted);
                if (got != id) return "call " + std::to_string(id) + " got " + describe(got);
            }
            return std::string();
        }));
    }
    for (auto& caller : callers) EXPECT_EQ(caller.get(), "");
    EXPECT_EQ(strayAccepted, 0) << "replies for ids nobody waits for must be dropped";
    EXPECT_TRUE(calls.tryTakeReaderTurn()) << "the last reader gave its turn up";
}

// Each round the test reads while two callers wait, then gives the turn up and answers neither, the
// first or the second (one is the woken one); a turn not handed over leaves a caller asleep.
TEST(PendingCalls, TheTurnToReadPassesToAWaitingCallerWhenTheReaderEndsItOrTheWokenCallerLeaves) {
    for (std::int64_t answered : {0, 1, 2}) {
        PendingCalls calls(closedError);
        ASSERT_TRUE(calls.tryTakeReaderTurn());
        std::vector<std::future<PendingCalls::Wait>> waiting;
        for (std::int64_t id : {1, 2}) {
            calls.add(id, "");
            waiting.push_back(std::async(std::launch::async, [&calls, id] {
                const auto got = calls.wait(id, steady_clock::now() + 10s);
                if (got == PendingCalls::Wait::readerTurn) calls.endReaderTurn();
                calls.remove(id);
                return got;
            }));
        }
        std::this_thread::sleep_for(50ms);  // both asleep in wait()
        calls.endReaderTurn();
        if (answered) calls.complete(answered, {"reply", std::nullopt});
        for (auto& caller : waiting) EXPECT_NE(caller.get(), PendingCalls::Wait::timedOut) << "round " << answered;
    }
}

TEST(PendingCalls, LateRepliesUnsentRequestsOfGoneCallsAndFailuresReachNobodyElse) {
    PendingCalls calls(closedError);
    calls.add(1, "one");
    calls.add(2, "two");
    EXPECT_EQ(calls.wait(1, steady_clock::now()), PendingCalls::Wait::timedOut);
    EXPECT_FALSE(calls.remove(1)) << "no outcome for a call that timed out";
    EXPECT_FALSE(calls.complete(1, {"late", std::nullopt}));
    auto taken = calls.takeUnsent();
    ASSERT_EQ(taken.size(), 1u) << "the request of a call that left is not sent";
    EXPECT_EQ(taken[0].text, "two");
    EXPECT_TRUE(calls.takeUnsent().empty());

    calls.failAll({-32101, "connection lost"});
    EXPECT_FALSE(calls.complete(2, {"after the drop", std::nullopt})) << "the first outcome stays";
    EXPECT_EQ(calls.wait(2, steady_clock::now() + 10s), PendingCalls::Wait::answered);
    EXPECT_EQ(calls.remove(2)->error->code, -32101);
}

TEST(PendingCalls, ClosingFailsWaitingAndLaterCallsAndWaitsForCallersToLeave) {
    PendingCalls calls(closedError);
    std::atomic<int> strayAccepted{0};
    ASSERT_TRUE(calls.tryTakeReaderTurn());  // a reader that never answers
    std::vector<std::future<Value>> waiting;
    for (std::int64_t id = 1; id <= 8; ++id)
        waiting.push_back(std::async(std::launch::async, [&, id] { return callThrough(calls, id, strayAccepted); }));
    for (std::size_t registered = 0; registered < 8; std::this_thread::sleep_for(1ms))
        registered += calls.takeUnsent().size();

    std::optional<CallerPresence> lingering;
    lingering.emplace(calls);
    ASSERT_TRUE(lingering->entered());
    auto closing = std::async(std::launch::async, [&] { calls.closeAndWaitForCallers(); });
    for (auto& call : waiting) EXPECT_EQ(call.get(), closedError.message);
    EXPECT_EQ(closing.wait_for(50ms), std::future_status::timeout) << "a caller is still inside";
    EXPECT_FALSE(CallerPresence(calls).entered());
    calls.add(9, "nine");
    EXPECT_EQ(calls.remove(9)->error->code, closedError.code);
    lingering.reset();
    closing.get();
}

}  // namespace
}  // namespace kelvane
