#include "trace/tracing_client.hpp"

#include <kelvane/protocol/json_rpc.hpp>
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

const char* outcomeName(const std::optional<RpcError>& error) {
    if (!error) return "result";
    switch (error->kind) {
    case RpcError::Kind::controller: return "error";
    case RpcError::Kind::timeout: return "timeout";
    case RpcError::Kind::notReachable: return "not_reachable";
    case RpcError::Kind::closed: return "closed";
    }
    return "error";
}

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
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                  utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, millis);
    return text;
}

TracingClient::TracingClient(std::shared_ptr<RpcClient> traced, std::shared_ptr<TraceWriter> trace,
                             std::shared_ptr<Clock> clock, std::string endpoint)
    : traced_(std::move(traced)),
      trace_(std::move(trace)),
      clock_(std::move(clock)),
      endpoint_(std::move(endpoint)) {}

Value TracingClient::call(const std::string& method, const Value& args, const Value& kwargs,
                          RpcErrorSlot error) {
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

// Written field by field so the fields stand in the order a person reads them.
std::string TracingClient::line(const Call& call) {
    std::string outcome = outcomeName(call.error);
    std::string text = "{\"time\":\"" + isoTime(call.startWall) + "\"";
    text += ",\"t\":" + jsonrpc::toJson(roundedSeconds(trace_->sinceFirstCall(call.startMonotonic)));
    text += ",\"endpoint\":" + jsonrpc::toJson(endpoint_);
    text += ",\"id\":" + std::to_string(call.id);
    text += ",\"method\":" + jsonrpc::toJson(call.method);
    text += ",\"params\":" + jsonrpc::toJson(call.params);
    text += ",\"kwargs\":" + jsonrpc::toJson(call.kwargs);
    text += ",\"outcome\":\"" + outcome + "\"";
    if (!call.error) {
        text += ",\"result\":" + jsonrpc::toJson(call.result);
    } else {
        Value error = {{"code", call.error->code}, {"message", call.error->message}};
        text += ",\"error\":" + jsonrpc::toJson(error);
    }
    double seconds = call.finishedMonotonic - call.startMonotonic;
    text += ",\"ms\":" + jsonrpc::toJson(roundedMilliseconds(seconds));
    return text + "}\n";
}

}  // namespace kelvane
