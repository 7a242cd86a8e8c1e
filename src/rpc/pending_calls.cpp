#include "rpc/pending_calls.hpp"

#include <algorithm>

namespace kelvane {

bool PendingCalls::enter() {
    std::lock_guard lock(mutex_);
    if (closed_) return false;
    ++callers_;
    return true;
}

void PendingCalls::leave() {
    std::lock_guard lock(mutex_);
    if (--callers_ == 0 && closed_) callersLeft_.notify_all();
}

bool PendingCalls::add(std::int64_t id, std::string request) {
    std::lock_guard lock(mutex_);
    if (closed_) {
        calls_[id].outcome = Outcome{nullptr, closedError_};
        return false;
    }
    calls_[id];
    unsent_.push_back({id, std::move(request)});
    return reading_;
}

std::optional<PendingCalls::Outcome> PendingCalls::remove(std::int64_t id) {
    std::lock_guard lock(mutex_);
    auto found = calls_.find(id);
    if (found == calls_.end()) return std::nullopt;
    auto outcome = std::move(found->second.outcome);
    calls_.erase(found);
    // It may have been the one woken to read next.
    if (!reading_) handOverReaderTurnLocked();
    return outcome;
}

PendingCalls::Wait PendingCalls::wait(std::int64_t id, Deadline deadline) {
    std::unique_lock lock(mutex_);
    auto found = calls_.find(id);
    if (found == calls_.end()) return Wait::timedOut;
    auto& call = found->second;
    while (true) {
        if (call.outcome) return Wait::answered;
        if (std::chrono::steady_clock::now() >= deadline) return Wait::timedOut;
        if (!reading_) {
            reading_ = true;
            return Wait::readerTurn;
        }
        call.changed.wait_until(lock, deadline);
    }
}

bool PendingCalls::tryTakeReaderTurn() {
    std::lock_guard lock(mutex_);
    return !std::exchange(reading_, true);
}

void PendingCalls::endReaderTurn() {
    std::lock_guard lock(mutex_);
    reading_ = false;
    handOverReaderTurnLocked();
}

// Wakes one call still waiting for its reply to take the turn over. Waking every one would cost
// each caller's thread a wake-up per reply, and all but one would find the turn taken.
void PendingCalls::handOverReaderTurnLocked() {
    for (auto& [id, call] : calls_) {
        if (!call.outcome) {
            call.changed.notify_one();
            return;
        }
    }
}

std::vector<PendingCalls::Request> PendingCalls::takeUnsent() {
    std::lock_guard lock(mutex_);
    std::vector<Request> taking;
    for (auto& request : unsent_) {
        // Requests of calls that ended before they went out are not sent at all.
        auto found = calls_.find(request.id);
        if (found != calls_.end() && !found->second.outcome) taking.push_back(std::move(request));
    }
    unsent_.clear();
    return taking;
}

bool PendingCalls::complete(std::int64_t id, Outcome outcome) {
    std::lock_guard lock(mutex_);
    auto found = calls_.find(id);
    if (found == calls_.end() || found->second.outcome) return false;
    found->second.outcome = std::move(outcome);
    found->second.changed.notify_one();
    return true;
}

void PendingCalls::failAll(const RpcError& error) {
    std::lock_guard lock(mutex_);
    for (auto& [id, call] : calls_) {
        if (call.outcome) continue;
        call.outcome = Outcome{nullptr, error};
        call.changed.notify_one();
    }
}

bool PendingCalls::answered(std::int64_t id) const {
    std::lock_guard lock(mutex_);
    auto found = calls_.find(id);
    return found != calls_.end() && found->second.outcome;
}

void PendingCalls::closeLocked() {
    closed_ = true;
    for (auto& [id, call] : calls_) {
        if (call.outcome) continue;
        call.outcome = Outcome{nullptr, closedError_};
        call.changed.notify_one();
    }
}

void PendingCalls::close() {
    std::lock_guard lock(mutex_);
    closeLocked();
}

void PendingCalls::closeAndWaitForCallers() {
    std::unique_lock lock(mutex_);
    closeLocked();
    callersLeft_.wait(lock, [this] { return callers_ == 0; });
}

bool PendingCalls::closed() const {
    std::lock_guard lock(mutex_);
    return closed_;
}

}  // namespace kelvane
