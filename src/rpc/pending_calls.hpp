// PendingCalls: the calls of one client that wait for their replies, matched by id. It knows
// nothing of sockets: a transport registers each call with its request, takes the requests to
// send, hands each reply it reads to complete(), and fails everything when the connection drops.
//
// It also keeps the turn to read replies for everyone: a waiting caller that finds the turn free
// takes it (see wait()), reads until its own reply is in, then gives it up for the next one.
#pragma once

#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kelvane {

class PendingCalls {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    struct Outcome {
        Value result;
        std::optional<RpcError> error;
    };
    struct Request {
        std::int64_t id;
        std::string text;
    };
    enum class Wait { answered, readerTurn, timedOut };

    explicit PendingCalls(RpcError closedError) : closedError_(std::move(closedError)) {}
    PendingCalls(const PendingCalls&) = delete;
    PendingCalls& operator=(const PendingCalls&) = delete;

    // Counts a caller in (false once closed, and nothing is counted); close() waits for it.
    bool enter();
    void leave();

    // Registers call `id` with its request text, to be sent by whoever reads. True when someone
    // holds the turn to read now (it must be woken to send the request).
    bool add(std::int64_t id, std::string request);
    // The call leaves the table; a reply that still comes for it is dropped. Its outcome, if
    // it had one. A caller must call it once wait() has returned, even without an outcome: the
    // turn to read may have been handed to it meanwhile, and it passes it on.
    std::optional<Outcome> remove(std::int64_t id);

    // Blocks until call `id` is answered, its deadline passes, or the turn to read is free: then
    // the caller has taken it and must give it up with endReaderTurn().
    Wait wait(std::int64_t id, Deadline deadline);
    // Takes the turn to read if nobody holds it (for work on the socket outside any call).
    bool tryTakeReaderTurn();
    void endReaderTurn();

    // The requests of calls still waiting that have not been taken yet, oldest first.
    std::vector<Request> takeUnsent();
    // Hands an outcome to call `id`; false when no call waits for it (the reply is dropped).
    bool complete(std::int64_t id, Outcome outcome);
    // Every waiting call fails with `error`.
    void failAll(const RpcError& error);
    bool answered(std::int64_t id) const;

    // Fails every waiting call and every later one with the closed error.
    void close();
    // close(), then waits until every caller has left.
    void closeAndWaitForCallers();
    bool closed() const;

private:
    struct Call {
        std::condition_variable changed;
        std::optional<Outcome> outcome;
    };

    void closeLocked();
    void handOverReaderTurnLocked();

    const RpcError closedError_;
    mutable std::mutex mutex_;  // guards everything below
    std::condition_variable callersLeft_;
    std::unordered_map<std::int64_t, Call> calls_;
    std::deque<Request> unsent_;
    int callers_ = 0;
    bool reading_ = false;
    bool closed_ = false;
};

// Guards: each ends what it stands for however the scope is left (return, timeout, exception).

// The caller is counted as inside the client until it leaves, so closing waits for it.
class CallerPresence {
public:
    explicit CallerPresence(PendingCalls& calls) : calls_(calls), entered_(calls.enter()) {}
    ~CallerPresence() {
        if (entered_) calls_.leave();
    }
    CallerPresence(const CallerPresence&) = delete;
    CallerPresence& operator=(const CallerPresence&) = delete;
    bool entered() const { return entered_; }

private:
    PendingCalls& calls_;
    bool entered_;
};

// The call is in the table until the scope ends; after that no reply can reach it.
class Registration {
public:
    Registration(PendingCalls& calls, std::int64_t id) : calls_(calls), id_(id) {}
    ~Registration() { calls_.remove(id_); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    PendingCalls& calls_;
    std::int64_t id_;
};

// The turn to read held by this scope is given up at its end, so a waiting call takes it over.
class ReaderTurn {
public:
    explicit ReaderTurn(PendingCalls& calls) : calls_(calls) {}
    ~ReaderTurn() { calls_.endReaderTurn(); }
    ReaderTurn(const ReaderTurn&) = delete;
    ReaderTurn& operator=(const ReaderTurn&) = delete;

private:
    PendingCalls& calls_;
};

}  // namespace kelvane
