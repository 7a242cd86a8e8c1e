#include "fixture_server.hpp"

#include "request_reader.hpp"

#include <zmq_addon.hpp>

#include <algorithm>
#include <iostream>

namespace kelvane::sim {
namespace {

using std::chrono::milliseconds;

// A client that sends more than this in one message is disconnected by ZeroMQ.
constexpr std::int64_t largestRequestBytes = std::int64_t{16} << 20;
constexpr std::size_t longestLoggedText = 300;
// The replay's own control method: the report so far, as JSON.
constexpr std::string_view replayReportMethod = "sim.replay_report";
// Answered under --replay-strict to a request the trace has no exchange for.
constexpr int noRecordedMatchError = -32010;
static_assert(jsonrpc::isServerError(noRecordedMatchError));

std::string shortened(std::string text) {
    if (text.size() > longestLoggedText) {
        text.resize(longestLoggedText);
        text += "...";
    }
    return text;
}

// Routing id frames, an empty delimiter, then the one JSON frame: what DEALER clients that send
// the delimiter themselves and REQ clients both look like through a ROUTER.
std::optional<std::pair<Frames, std::string>> splitMessage(std::vector<zmq::message_t>& parts) {
    auto delimiter = std::find_if(parts.begin(), parts.end(),
                                  [](const zmq::message_t& part) { return part.size() == 0; });
    if (delimiter == parts.begin() || delimiter == parts.end() || parts.end() - delimiter != 2) {
        return std::nullopt;
    }
    Frames envelope;
    for (auto part = parts.begin(); part != delimiter; ++part) envelope.push_back(part->to_string());
    return std::pair{std::move(envelope), parts.back().to_string()};
}

}  // namespace

FixtureServer::FixtureServer(zmq::context_t& context, const std::string& endpoint, SimulatedFixture fixture,
                             std::string logLabel, bool quiet, std::size_t journalLimitBytes,
                             std::optional<ReplaySettings> replay)
    : fixture_(std::move(fixture)), logLabel_(std::move(logLabel)), quiet_(quiet), replay_(std::move(replay)),
      journal_(journalLimitBytes), router_(context, zmq::socket_type::router) {
    router_.set(zmq::sockopt::linger, 0);
    router_.set(zmq::sockopt::maxmsgsize, largestRequestBytes);
    router_.bind(endpoint);
    endpoint_ = router_.get(zmq::sockopt::last_endpoint);
}

void FixtureServer::receiveAll() {
    while (true) {
        std::vector<zmq::message_t> parts;
        if (!zmq::recv_multipart(router_, std::back_inserter(parts), zmq::recv_flags::dontwait)) return;
        auto message = splitMessage(parts);
        if (!message) {
            log("dropped a message without routing id, delimiter and one body frame");
            continue;
        }
        handle(message->first, message->second);
    }
}

void FixtureServer::handle(const Frames& envelope, std::string_view text) {
    auto read = readRequest(text);
    if (std::holds_alternative<Dropped>(read)) {
        log("dropped unreadable request: " + shortened(std::string(text)));
        return;
    }
    if (auto* rejection = std::get_if<Rejection>(&read)) {
        log("rejected request: " + rejection->error.message);
        reply(envelope, jsonrpc::encodeError(rejection->id, rejection->error));
        return;
    }
    const auto& request = std::get<jsonrpc::Request>(read);
    if (!quiet_) log(request.method + " " + shortened(jsonrpc::toJson(request.params)));
    if (ControlSurface::handles(request.method)) {
        reply(envelope, encodeOutcome(request.id, control(request)));
        return;
    }
    serveControllerRequest(envelope, request);
}

void FixtureServer::serveControllerRequest(const Frames& envelope, const jsonrpc::Request& request) {
    journal_.record(request);
    if (replay_ && replayAnswer(envelope, request)) return;
    auto script = scripts_.take(request.method);
    if (!script) {
        reply(envelope, encodeOutcome(request.id, modelAnswer(request)));
        return;
    }
    journal_.noteScript(actionName(script->action));
    auto message = script->messageFor(request.id, [&] { return modelAnswer(request); });
    if (!message) {
        log("  (scripted: no reply)");
        return;
    }
    if (script->delay.count() > 0) {
        log("  (scripted: sent in " + std::to_string(script->delay.count()) + " ms)");
    }
    reply(envelope, std::move(*message), script->delay);
}

bool FixtureServer::replayAnswer(const Frames& envelope, const jsonrpc::Request& request) {
    auto answer = replay_->book.take(request);
    if (!answer) {
        if (!replay_->strict) return false;
        log("  (replay: no recorded match)");
        reply(envelope, jsonrpc::encodeError(request.id, RpcError{noRecordedMatchError,
            "no recorded exchange for " + request.method + " " + jsonrpc::toJson(request.params)}));
        return true;
    }
    if (!answer->outcome) {
        log("  (replay: no reply, as recorded)");
        return true;
    }
    // The recorded answer goes out under the id of the request asking now.
    reply(envelope, encodeOutcome(request.id, *answer->outcome),
          replay_->recordedTiming ? answer->recordedDuration : milliseconds{0});
    return true;
}

Outcome FixtureServer::control(const jsonrpc::Request& request) {
    if (request.method == replayReportMethod && replay_) return Outcome::reply(replay_->book.report());
    return control_.call(request);
}

Outcome FixtureServer::modelAnswer(const jsonrpc::Request& request) {
    if (auto outcome = fixture_.call(request)) return *outcome;
    return Outcome::failure(jsonrpc::methodNotFoundError, "method not found: " + request.method);
}

void FixtureServer::reply(const Frames& envelope, std::string message, milliseconds delay) {
    Frames frames = envelope;
    frames.emplace_back();
    frames.push_back(std::move(message));
    if (delay.count() > 0) {
        delayed_.schedule(Clock::now() + delay, std::move(frames));
        return;
    }
    send(frames);
}

// A client that has gone away simply misses its reply; nothing a client does stops the server.
void FixtureServer::send(const Frames& frames) {
    if (!quiet_ && !frames.empty()) log("  -> " + shortened(frames.back()));
    try {
        for (std::size_t i = 0; i < frames.size(); ++i) {
            auto flags = zmq::send_flags::dontwait;
            if (i + 1 < frames.size()) flags = flags | zmq::send_flags::sndmore;
            if (!router_.send(zmq::buffer(frames[i]), flags)) return;
        }
    } catch (const zmq::error_t& error) {
        log(std::string("reply not sent: ") + error.what());
    }
}

void FixtureServer::sendDue(Clock::time_point now) {
    for (const auto& frames : delayed_.takeDue(now)) send(frames);
}

void FixtureServer::log(const std::string& line) const {
    if (!quiet_) std::cerr << logLabel_ << line << '\n';
}

}  // namespace kelvane::sim
