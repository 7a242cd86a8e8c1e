#include "trace/tracing_client.hpp"

#include <kelvane/protocol/trace_line.hpp>
#include "trace/trace_writer.hpp"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <optional>

namespace kelvane {
namespace {

// Milliseconds with a tenth of a microsecond: finer says nothing about a network round trip.
double roundedMilliseconds(double seconds) { return std::round(seconds * 1e7) / 1e4; }
double roundedSeconds(double seconds) { return std::round(seconds * 1e6) / 1e6; }

}  // namespace

struct TracingClient::Call {
    std::int64_t id;
    const std::string& method;
    const Value& params;
    const Value& kwargs;
    double startWall;
    double startMonotonic;
    double finishedMonotonic;
    const Value& result;
    const std::optional<RpcError>& error;
};

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
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, millis);
    return text;
}

TracingClient::TracingClient(std::shared_ptr<RpcClient> traced, std::shared_ptr<TraceWriter> trace,
                             std::shared_ptr<Clock> clock, std::string endpoint)
    : traced_(std::move(traced)), trace_(std::move(trace)), clock_(std::move(clock)), endpoint_(std::move(endpoint)) {}

Value TracingClient::call(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) {
    auto id = nextId_.fetch_add(1);
    double startWall = clock_->now(), startMonotonic = clock_->monotonic();
    std::optional<RpcError> failure;
    Value result = traced_->call(method, args, kwargs, &failure);
    record({id, method, args, kwargs, startWall, startMonotonic, clock_->monotonic(), result, failure});
    if (error) *error = std::move(failure);
    return result;
}

void TracingClient::close() { traced_->close(); }

void TracingClient::record(const Call& call) noexcept {
    try {
        trace_->write(line(call));
    } catch (...) {
        // Out of memory while formatting: the line is lost, the call goes on.
    }
}

std::string TracingClient::line(const Call& call) {
    trace::TraceLine line;
    line.time = isoTime(call.startWall);
    line.t = roundedSeconds(trace_->sinceFirstCall(call.startMonotonic));
    line.endpoint = endpoint_;
    line.id = call.id;
    line.method = call.method;
    line.params = call.params;
    line.kwargs = call.kwargs;
    line.outcome = trace::outcomeOf(call.error);
    if (call.error) {
        line.errorCode = call.error->code;
        line.errorMessage = call.error->message;
    } else {
        line.result = call.result;
    }
    line.ms = roundedMilliseconds(call.finishedMonotonic - call.startMonotonic);
    return trace::encode(line);
}

}  // namespace kelvane
