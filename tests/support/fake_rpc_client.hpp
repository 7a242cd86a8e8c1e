// An in-process stand-in for a controller: scripted replies per method, and a journal of calls.
#pragma once

#include <kelvane/RpcClient.hpp>

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <stdexcept>

namespace kelvane::testing {

struct RecordedCall {
    std::string method;
    Value args;
    Value kwargs;  // null when the call had none
};

struct ScriptedAnswer {
    Value reply;                    // null: no reply
    std::optional<RpcError> error;  // put in the error slot when set
    bool used = false;
};

// Thrown by a call past the fake's call budget.
struct CallBudgetExceeded : std::logic_error {
    using std::logic_error::logic_error;
};

class FakeRpcClient final : public RpcClient {
public:
    // Calls allowed from now on. One past the budget fails the test and throws, so code that
    // would call for ever ends the test instead of hanging it.
    void limitCalls(std::size_t budget) {
        std::lock_guard lock(mutex_);
        budget_ = budget, spent_ = 0;
    }

    // Answers queued for one method are used in order; the last one stays for later calls until
    // a new answer is given.
    void answer(const std::string& method, Value reply) { answer(method, ScriptedAnswer{std::move(reply), {}}); }
    void answer(const std::string& method, ScriptedAnswer scripted) {
        std::lock_guard lock(mutex_);
        auto& queue = answers_[method];
        if (queue.size() == 1 && queue.front().used) queue.clear();
        queue.push_back(std::move(scripted));
    }
    void fail(const std::string& method, RpcError error) { answer(method, ScriptedAnswer{nullptr, std::move(error)}); }
    // Drops every answer queued for the method: it answers nothing from now on.
    void forget(const std::string& method) {
        std::lock_guard lock(mutex_);
        answers_.erase(method);
    }
    void onCall(std::function<void(const RecordedCall&)> hook) { hook_ = std::move(hook); }

    Value call(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) override {
        RecordedCall recorded{method, args, kwargs};
        if (hook_) hook_(recorded);
        std::lock_guard lock(mutex_);
        if (++spent_ > budget_) {
            ADD_FAILURE() << "call budget of " << budget_ << " calls spent by " << method;
            throw CallBudgetExceeded("call budget spent");
        }
        calls_.push_back(recorded);
        auto& queue = answers_[method];
        if (queue.empty()) return nullptr;
        ScriptedAnswer scripted = queue.front();
        queue.front().used = true;
        if (queue.size() > 1) queue.pop_front();
        if (scripted.error && error) *error = scripted.error;
        return scripted.reply;
    }

    std::vector<RecordedCall> calls() const {
        std::lock_guard lock(mutex_);
        return calls_;
    }
    // Each call as the controller saw it: the method, then its positional arguments unless
    // there were none, then its keyword arguments if there were any, e.g.
    // `vantrel.fixture_io_set [[[10,1]]] {"timeout_ms":20000}`.
    std::vector<std::string> requests() const {
        std::vector<std::string> lines;
        for (const auto& call : calls()) {
            lines.push_back(call.method + (call.args == Value::array() ? "" : " " + call.args.dump()) +
                            (call.kwargs.is_null() ? "" : " " + call.kwargs.dump()));
        }
        return lines;
    }
    std::vector<std::string> methods() const {
        std::vector<std::string> names;
        for (const auto& call : calls()) names.push_back(call.method);
        return names;
    }
    void clearCalls() {
        std::lock_guard lock(mutex_);
        calls_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::deque<ScriptedAnswer>> answers_;
    std::vector<RecordedCall> calls_;
    std::function<void(const RecordedCall&)> hook_;
    std::size_t budget_ = 10'000;  // for every test: no unit test needs more calls
    std::size_t spent_ = 0;
};

}  // namespace kelvane::testing
