#include "replay_book.hpp"

#include <bounded_lines.hpp>
#include <kelvane/protocol/trace_line.hpp>

#include <algorithm>

namespace kelvane::sim {
namespace {

// A day: longer recorded durations (or nonsense ones) are cut to it, a wait the server can hold.
constexpr double longestRecordedMs = 86'400'000;

std::string keyOf(const std::string& method, const Value& params) {
    return method + '\n' + jsonrpc::toJson(params.is_array() ? params : Value::array());
}

Value requestText(const std::string& method, const Value& params) { return {{"method", method}, {"params", params}}; }

// The answer a trace line recorded; nothing for a call that never reached the controller.
std::optional<ReplayedAnswer> answerOf(const trace::TraceLine& line) {
    auto milliseconds = std::clamp(line.ms, 0.0, longestRecordedMs);
    ReplayedAnswer answer{std::nullopt, std::chrono::milliseconds(static_cast<long long>(milliseconds))};
    switch (line.outcome) {
        case trace::Outcome::result:
            answer.outcome = Outcome::reply(line.result);
            break;
        case trace::Outcome::error:
            answer.outcome = Outcome::failure(line.errorCode, line.errorMessage);
            break;
        case trace::Outcome::closed:
            return std::nullopt;
        case trace::Outcome::timeout:
        case trace::Outcome::notReachable:
            break;
    }
    return answer;
}

}  // namespace

std::variant<ReplayBook, std::string> ReplayBook::load(const std::string& path) {
    using Read = tools::BoundedLines::Read;
    tools::BoundedLines lines(path);
    if (!lines.isOpen()) return "cannot open " + path + ": " + lines.problem();
    ReplayBook book;
    for (Read read; (read = lines.next()) != Read::end;) {
        if (read == Read::failed) {
            return "reading " + path + " failed after line " + std::to_string(lines.number()) + ": " + lines.problem();
        }
        auto where = path + ":" + std::to_string(lines.number()) + ": ";
        if (read == Read::tooLong) {
            return where + "not a trace line: longer than " + std::to_string(tools::longestTraceLine >> 20) + " MiB";
        }
        if (lines.line().empty()) continue;
        auto parsed = trace::parse(lines.line());
        if (auto* problem = std::get_if<std::string>(&parsed)) return where + *problem;
        auto& line = std::get<trace::TraceLine>(parsed);
        if (auto answer = answerOf(line)) book.add({std::move(line.method), std::move(line.params), *answer});
    }
    return book;
}

void ReplayBook::add(Exchange exchange) {
    byRequest_[keyOf(exchange.method, exchange.params)].unused.push_back(exchanges_.size());
    exchanges_.push_back(std::move(exchange));
}

std::optional<ReplayedAnswer> ReplayBook::take(const jsonrpc::Request& request) {
    auto queue = byRequest_.find(keyOf(request.method, request.params));
    if (queue == byRequest_.end()) {
        unmatched_.push_back(requestText(request.method, request.params));
        return std::nullopt;
    }
    auto& [unused, last] = queue->second;
    if (unused.empty()) {
        ++repeated_;
        return exchanges_[*last].answer;
    }
    last = unused.front();
    unused.pop_front();
    exchanges_[*last].used = true;
    ++replayed_;
    return exchanges_[*last].answer;
}

Value ReplayBook::report() const {
    Value neverAsked = Value::array();
    for (const auto& exchange : exchanges_) {
        if (!exchange.used) neverAsked.push_back(requestText(exchange.method, exchange.params));
    }
    return {{"recorded", exchanges_.size()},
            {"replayed", replayed_},
            {"repeated", repeated_},
            {"unmatched", unmatched_},
            {"never_asked", neverAsked}};
}

std::string ReplayBook::reportText() const {
    Value summary = report();
    auto list = [](const Value& requests) {
        std::string text;
        for (const auto& request : requests) {
            text += "  " + request["method"].get<std::string>() + " " + jsonrpc::toJson(request["params"]) + "\n";
        }
        return text;
    };
    return "replay: " + std::to_string(replayed_) + " of " + std::to_string(exchanges_.size()) +
           " recorded exchanges replayed, " + std::to_string(repeated_) + " answers repeated\n" +
           "requests with no recorded match: " + std::to_string(unmatched_.size()) + "\n" + list(unmatched_) +
           "recorded exchanges never asked for: " + std::to_string(summary["never_asked"].size()) + "\n" +
           list(summary["never_asked"]);
}

}  // namespace kelvane::sim
