#include "trace_reading.hpp"

#include <kelvane/protocol/json_rpc.hpp>
#include <kelvane/protocol/trace_line.hpp>

#include <cstdio>
#include <optional>
#include <variant>

namespace kelvanectl {
namespace {

constexpr std::size_t shortParams = 40;
constexpr std::size_t shortDetail = 60;

std::string shortened(std::string text, std::size_t length) {
    if (text.size() > length) {
        text.resize(length - 3);
        text += "...";
    }
    return text;
}

// The call a line records, if it is a trace line.
std::optional<TracedCall> callIn(const std::string& text) {
    using kelvane::trace::Outcome;
    auto parsed = kelvane::trace::parse(text);
    const auto* line = std::get_if<kelvane::trace::TraceLine>(&parsed);
    if (!line) return std::nullopt;
    TracedCall call;
    call.time = line->time;
    call.method = line->method;
    call.params = shortened(kelvane::jsonrpc::toJson(line->params), shortParams);
    call.outcome = line->outcome;
    if (line->outcome == Outcome::result) {
        call.detail = shortened(kelvane::jsonrpc::toJson(line->result), shortDetail);
    } else if (line->outcome == Outcome::error) {
        call.detail = shortened(std::to_string(line->errorCode) + " " + line->errorMessage, shortDetail);
    }
    call.milliseconds = line->ms;
    return call;
}

std::string format(const char* pattern, auto... values) {
    char text[512];
    std::snprintf(text, sizeof text, pattern, values...);
    return text;
}

// Figures are kept for this many methods; the calls of any others (a file of made-up names)
// share one row, so the figures cost the same whatever the file holds.
constexpr std::size_t mostMethods = 1000;
constexpr const char* otherMethods = "(other methods)";
constexpr std::size_t longestMethodKey = 100;

}  // namespace

TraceReading readTrace(kelvane::tools::BoundedLines& lines, const std::function<void(const TracedCall&)>& onCall,
                       const std::function<void(std::size_t lineNumber)>& onTooLong) {
    using Read = kelvane::tools::BoundedLines::Read;
    TraceReading reading;
    for (Read read; (read = lines.next()) != Read::end;) {
        if (read == Read::failed) {
            reading.readToTheEnd = false;
            break;
        }
        if (read == Read::tooLong) {
            ++reading.notTraceLines;
            onTooLong(lines.number());
            continue;
        }
        if (lines.line().empty()) continue;
        if (auto call = callIn(lines.line()))
            onCall(*call);
        else
            ++reading.notTraceLines;
    }
    return reading;
}

std::string timelineLine(const TracedCall& call) {
    const std::string outcome(kelvane::trace::outcomeWord(call.outcome));
    std::string text = format("%-24s %-28s %-40s %-13s %9.1f ms", call.time.c_str(), call.method.c_str(),
                              call.params.c_str(), outcome.c_str(), call.milliseconds);
    if (!call.detail.empty()) text += "  " + call.detail;
    return text + '\n';
}

std::string notTraceLinesNote(const TraceReading& reading) {
    if (reading.notTraceLines == 0) return {};
    if (reading.notTraceLines == 1) return "1 line is not a trace line\n";
    return std::to_string(reading.notTraceLines) + " lines are not trace lines\n";
}

void MethodStatistics::add(const TracedCall& call) {
    std::string key = shortened(call.method, longestMethodKey);
    if (byMethod_.size() >= mostMethods && !byMethod_.contains(key)) key = otherMethods;
    auto& figures = byMethod_[key];
    figures.durations.add(call.milliseconds);
    if (call.outcome == kelvane::trace::Outcome::timeout)
        ++figures.timeouts;
    else if (call.outcome != kelvane::trace::Outcome::result)
        ++figures.errors;
}

std::string MethodStatistics::table() const {
    std::string text = format("%-28s %7s %7s %8s %9s %9s %9s %9s\n", "method", "calls", "errors", "timeouts", "p50 ms",
                              "p90 ms", "p99 ms", "max ms");
    for (const auto& [method, figures] : byMethod_) {
        const auto& durations = figures.durations;
        text += format("%-28s %7zu %7zu %8zu %9.1f %9.1f %9.1f %9.1f\n", method.c_str(), durations.count(),
                       figures.errors, figures.timeouts, durations.percentile(0.5), durations.percentile(0.9),
                       durations.percentile(0.99), durations.largest());
    }
    return text;
}

}  // namespace kelvanectl
