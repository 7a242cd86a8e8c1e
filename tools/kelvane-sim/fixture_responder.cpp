#include "fixture_responder.hpp"

#include "request_reader.hpp"

#include <kelvane/protocol/sim_methods.hpp>

namespace kelvane::sim {
namespace {

constexpr std::size_t longestLoggedText = 300;
// Answered under --replay-strict to a request the trace has no exchange for.
constexpr int noRecordedMatchError = -32010;
static_assert(jsonrpc::isServerError(noRecordedMatchError));

}  // namespace

std::string shortenedForLog(std::string_view text) {
    if (text.size() <= longestLoggedText) return std::string(text);
    return std::string(text.substr(0, longestLoggedText)) + "...";
}

FixtureResponder::FixtureResponder(SimulatedFixture fixture, std::size_t journalLimitBytes,
                                   std::optional<ReplaySettings> replay, Log log)
    : fixture_(std::move(fixture)), replay_(std::move(replay)), log_(std::move(log)), journal_(journalLimitBytes) {}

std::optional<FixtureResponder::Reply> FixtureResponder::answer(std::string_view message) {
    auto read = readRequest(message);
    if (std::holds_alternative<Dropped>(read)) {
        log("dropped unreadable request: " + shortenedForLog(message));
        return std::nullopt;
    }
    if (auto* rejection = std::get_if<Rejection>(&read)) {
        log("rejected request: " + rejection->error.message);
        return Reply{jsonrpc::encodeError(rejection->id, rejection->error)};
    }
    const auto& request = std::get<jsonrpc::Request>(read);
    if (log_) log(request.method + " " + shortenedForLog(jsonrpc::toJson(request.params)));
    if (ControlSurface::handles(request.method)) return Reply{encodeOutcome(request.id, control(request))};
    return controllerAnswer(request);
}

std::optional<FixtureResponder::Reply> FixtureResponder::controllerAnswer(const jsonrpc::Request& request) {
    journal_.record(request);
    if (replay_) {
        if (auto recorded = replay_->book.take(request)) return replayed(request.id, *recorded);
        if (replay_->strict) {
            log("  (replay: no recorded match)");
            return Reply{jsonrpc::encodeError(
                request.id, RpcError{noRecordedMatchError, "no recorded exchange for " + request.method + " " +
                                                               jsonrpc::toJson(request.params)})};
        }
    }
    if (auto script = scripts_.take(request.method)) return scripted(request, *script);
    return Reply{encodeOutcome(request.id, modelAnswer(request))};
}

// The recorded answer goes out under the id of the request asking now.
std::optional<FixtureResponder::Reply> FixtureResponder::replayed(std::int64_t id, const ReplayedAnswer& recorded) {
    if (!recorded.outcome) {
        log("  (replay: no reply, as recorded)");
        return std::nullopt;
    }
    return Reply{encodeOutcome(id, *recorded.outcome),
                 replay_->recordedTiming ? recorded.recordedDuration : std::chrono::milliseconds{0}};
}

std::optional<FixtureResponder::Reply> FixtureResponder::scripted(const jsonrpc::Request& request,
                                                                  const Script& script) {
    journal_.noteScript(actionName(script.action));
    auto message = script.messageFor(request.id, [&] { return modelAnswer(request); });
    if (!message) {
        log("  (scripted: no reply)");
        return std::nullopt;
    }
    if (script.delay.count() > 0) log("  (scripted: sent in " + std::to_string(script.delay.count()) + " ms)");
    return Reply{std::move(*message), script.delay};
}

Outcome FixtureResponder::control(const jsonrpc::Request& request) {
    if (request.method == methods::sim::replayReport && replay_) return Outcome::reply(replay_->book.report());
    return control_.call(request);
}

Outcome FixtureResponder::modelAnswer(const jsonrpc::Request& request) {
    if (auto outcome = fixture_.call(request)) return *outcome;
    return Outcome::failure(jsonrpc::methodNotFoundError, "method not found: " + request.method);
}

void FixtureResponder::log(const std::string& line) const {
    if (log_) log_(line);
}

}  // namespace kelvane::sim
