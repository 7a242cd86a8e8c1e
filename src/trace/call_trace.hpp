// CallTrace: one JSON line per controller call of a client, written to a TraceWriter, so a station
// engineer can read the whole conversation of a fixture afterwards and replay it on a desk
// (kelvane-sim --replay). See docs/trace.md for the line format.
#pragma once

#include "trace/trace_writer.hpp"

#include <kelvane/Platform.hpp>
#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kelvane {

// Where a call ended, as the "outcome" of its line.
enum class TracedOutcome { result, error, timeout, notReachable, closed };

// The outcome a client's call had: the client's own error codes stand for the cases where the
// controller gave no answer.
TracedOutcome classifyOutcome(const std::optional<RpcError>& error);
const char* outcomeName(TracedOutcome outcome);

struct TracedCall {
    std::int64_t id = 0;
    const std::string& method;
    const Value& params;
    const Value& kwargs;
    const Value& result;
    const std::optional<RpcError>& error;
};

class CallTrace {
public:
    // Traced calls are stamped with `clock`: its wall time for the line's time, its steady time
    // for the seconds since the first call and the duration.
    CallTrace(std::shared_ptr<TraceWriter> writer, std::shared_ptr<Clock> clock,
              std::string endpoint);

    // The trace the host's environment asks for (KELVANE_TRACE names the file,
    // KELVANE_TRACE_MAX_MB its size limit, default 64), or null when it asks for none.
    static std::shared_ptr<CallTrace> fromEnvironment(const std::string& endpoint);

    struct Start {
        double wall = 0;
        double monotonic = 0;
    };
    Start begin();
    // Writes the call's line; a line that cannot be written is lost, the call is not disturbed.
    void record(const Start& start, const TracedCall& call) noexcept;

    // The line of one call, ending in a line break.
    std::string line(const Start& start, double finishedMonotonic, const TracedCall& call);

private:
    std::shared_ptr<TraceWriter> writer_;
    std::shared_ptr<Clock> clock_;
    std::string endpoint_;
};

// "2026-11-22T23:50:04.123Z": UTC with milliseconds.
std::string isoTime(double secondsSince1970);

}  // namespace kelvane
