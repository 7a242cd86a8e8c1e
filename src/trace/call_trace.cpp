#include "trace/call_trace.hpp"

#include <kelvane/protocol/json_rpc.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace kelvane {
namespace {

constexpr std::uint64_t defaultMaxMegabytes = 64;
constexpr std::uint64_t bytesPerMegabyte = 1024 * 1024;

std::uint64_t maxBytesFromEnvironment() {
    const char* text = std::getenv("KELVANE_TRACE_MAX_MB");
    if (!text || !*text) return defaultMaxMegabytes * bytesPerMegabyte;
    char* end = nullptr;
    unsigned long long megabytes = std::strtoull(text, &end, 10);
    if (*end != '\0' || megabytes == 0 || megabytes > (UINT64_MAX / bytesPerMegabyte)) {
        return defaultMaxMegabytes * bytesPerMegabyte;
    }
    return megabytes * bytesPerMegabyte;
}

// Milliseconds with a tenth of a microsecond: finer says nothing about a network round trip.
double roundedMilliseconds(double seconds) { return std::round(seconds * 1e7) / 1e4; }
double roundedSeconds(double seconds) { return std::round(seconds * 1e6) / 1e6; }

}  // namespace

TracedOutcome classifyOutcome(const std::optional<RpcError>& error) {
    if (!error) return TracedOutcome::result;
    switch (error->code) {
    case jsonrpc::timeoutError: return TracedOutcome::timeout;
    case jsonrpc::notConnectedError: return TracedOutcome::notReachable;
    case jsonrpc::clientClosedError: return TracedOutcome::closed;
    default: return TracedOutcome::error;
    }
}

const char* outcomeName(TracedOutcome outcome) {
    switch (outcome) {
    case TracedOutcome::result: return "result";
    case TracedOutcome::error: return "error";
    case TracedOutcome::timeout: return "timeout";
    case TracedOutcome::notReachable: return "not_reachable";
    case TracedOutcome::closed: return "closed";
    }
    return "error";
}

std::string isoTime(double secondsSince1970) {
    double whole = std::floor(secondsSince1970);
    auto millis = static_cast<int>(std::lround((secondsSince1970 - whole) * 1000));
    if (millis == 1000) {
        whole += 1;
        millis = 0;
    }
    std::time_t seconds = static_cast<std::time_t>(whole);
    std::tm utc{};
    if (!gmtime_r(&seconds, &utc)) return "";
    char text[64];  // room for any year an int holds
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                  utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, millis);
    return text;
}

CallTrace::CallTrace(std::shared_ptr<TraceWriter> writer, std::shared_ptr<Clock> clock,
                     std::string endpoint)
    : writer_(std::move(writer)), clock_(std::move(clock)), endpoint_(std::move(endpoint)) {}

std::shared_ptr<CallTrace> CallTrace::fromEnvironment(const std::string& endpoint) {
    const char* path = std::getenv("KELVANE_TRACE");
    if (!path || !*path) return nullptr;
    return std::make_shared<CallTrace>(TraceWriter::forPath(path, maxBytesFromEnvironment()),
                                       systemClock(), endpoint);
}

CallTrace::Start CallTrace::begin() { return {clock_->now(), clock_->monotonic()}; }

void CallTrace::record(const Start& start, const TracedCall& call) noexcept {
    try {
        writer_->write(line(start, clock_->monotonic(), call));
    } catch (...) {
        // Out of memory while formatting: the line is lost, the call goes on.
    }
}

// Written field by field so the fields stand in the order a person reads them.
std::string CallTrace::line(const Start& start, double finishedMonotonic, const TracedCall& call) {
    auto outcome = classifyOutcome(call.error);
    std::string text = "{\"time\":\"" + isoTime(start.wall) + "\"";
    text += ",\"t\":" + jsonrpc::toJson(roundedSeconds(writer_->sinceFirstCall(start.monotonic)));
    text += ",\"endpoint\":" + jsonrpc::toJson(endpoint_);
    text += ",\"id\":" + std::to_string(call.id);
    text += ",\"method\":" + jsonrpc::toJson(call.method);
    text += ",\"params\":" + jsonrpc::toJson(call.params);
    text += ",\"kwargs\":" + jsonrpc::toJson(call.kwargs);
    text += ",\"outcome\":\"" + std::string(outcomeName(outcome)) + "\"";
    if (outcome == TracedOutcome::result) {
        text += ",\"result\":" + jsonrpc::toJson(call.result);
    } else {
        Value error = {{"code", call.error->code}, {"message", call.error->message}};
        text += ",\"error\":" + jsonrpc::toJson(error);
    }
    text += ",\"ms\":" + jsonrpc::toJson(roundedMilliseconds(finishedMonotonic - start.monotonic));
    return text + "}\n";
}

}  // namespace kelvane
