// One simulated fixture held in the test's own process: each call goes to its responder as the
// request message a client sends and comes back as the reply message, decoded, as over the wire;
// no process, no socket, no waiting. Its models read a clock that only advance() moves. One
// thread at a time: the code under test calls it from the test's own thread.
#pragma once

#include "call_checks.hpp"
#include "fixture_responder.hpp"
#include "models.hpp"

#include <kelvane/protocol/error_codes.hpp>
#include <kelvane/protocol/json_rpc.hpp>
#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/sim_methods.hpp>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

namespace kelvane::testing {

class InProcessFixture : public CallChecks<InProcessFixture> {
public:
    explicit InProcessFixture(sim::WorldSettings world = {},
                              std::size_t journalLimitBytes = sim::Journal::defaultLimitBytes)
        : responder_(sim::SimulatedFixture(sim::makeModels(world, [this] { return now_; })), journalLimitBytes) {}

    // The reply to one request message, with the delay it would be sent after; nothing when
    // none would be sent.
    std::optional<sim::FixtureResponder::Reply> send(std::string_view message) { return responder_.answer(message); }
    // A call as the library's client makes it: the result, or the error it ends in. A reply the
    // client would not take (none, unreadable, another id) ends it as a timeout would.
    std::pair<Value, std::optional<RpcError>> ask(std::string_view method, const Value& params = Value::array(),
                                                  const Value& kwargs = nullptr) {
        const std::int64_t id = ++lastId_;
        auto reply = send(jsonrpc::encodeRequest({id, std::string(method), params, kwargs}));
        auto decoded = reply ? jsonrpc::decodeReply(reply->message) : std::nullopt;
        if (!decoded || decoded->id != id) {
            return {nullptr, RpcError{jsonrpc::timeoutError, "no reply", RpcError::Kind::timeout}};
        }
        return {decoded->result, decoded->error};
    }
    void advance(std::chrono::milliseconds by) { now_ += by; }

    // The library's client interface over this fixture, for the library's code to call it.
    std::shared_ptr<RpcClient> client() {
        struct Client final : RpcClient {
            explicit Client(InProcessFixture& fixture) : fixture(fixture) {}
            Value call(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) override {
                auto [reply, failure] = fixture.ask(method, args, kwargs);
                if (error) *error = failure;
                return reply;
            }
            InProcessFixture& fixture;
        };
        return std::make_shared<Client>(*this);
    }

private:
    std::chrono::steady_clock::time_point now_{};
    std::int64_t lastId_ = 0;
    sim::FixtureResponder responder_;
};

}  // namespace kelvane::testing
