#include "fixture_server.hpp"

#include <zmq_addon.hpp>

#include <algorithm>
#include <iostream>

namespace kelvane::sim {
namespace {

// A client that sends more than this in one message is disconnected by ZeroMQ.
constexpr std::int64_t largestRequestBytes = std::int64_t{16} << 20;

// Routing id frames, an empty delimiter, then the one JSON frame: what DEALER clients that send
// the delimiter themselves and REQ clients both look like through a ROUTER.
std::optional<std::pair<Frames, std::string>> splitMessage(std::vector<zmq::message_t>& parts) {
    auto delimiter =
        std::find_if(parts.begin(), parts.end(), [](const zmq::message_t& part) { return part.size() == 0; });
    if (delimiter == parts.begin() || delimiter == parts.end() || parts.end() - delimiter != 2) {
        return std::nullopt;
    }
    Frames envelope;
    for (auto part = parts.begin(); part != delimiter; ++part) envelope.push_back(part->to_string());
    return std::pair{std::move(envelope), parts.back().to_string()};
}

// Lines on standard error, each after the fixture's label; none when quiet.
FixtureResponder::Log labelledLog(bool quiet, std::string label) {
    if (quiet) return {};
    return [label = std::move(label)](const std::string& line) { std::cerr << label << line << '\n'; };
}

}  // namespace

FixtureServer::FixtureServer(zmq::context_t& context, const std::string& endpoint, SimulatedFixture fixture,
                             std::string logLabel, bool quiet, std::size_t journalLimitBytes,
                             std::optional<ReplaySettings> replay)
    : log_(labelledLog(quiet, std::move(logLabel))),
      responder_(std::move(fixture), journalLimitBytes, std::move(replay), log_),
      router_(context, zmq::socket_type::router) {
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
        auto reply = responder_.answer(message->second);
        if (!reply) continue;
        Frames frames = std::move(message->first);
        frames.emplace_back();
        frames.push_back(std::move(reply->message));
        if (reply->delay.count() > 0) {
            delayed_.schedule(Clock::now() + reply->delay, std::move(frames));
        } else {
            send(frames);
        }
    }
}

// A client that has gone away simply misses its reply; nothing a client does stops the server.
void FixtureServer::send(const Frames& frames) {
    if (log_ && !frames.empty()) log_("  -> " + shortenedForLog(frames.back()));
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
    if (log_) log_(line);
}

}  // namespace kelvane::sim
