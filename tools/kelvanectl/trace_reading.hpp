// Reading a trace file that the library wrote (KELVANE_TRACE): a timeline a person can follow,
// or per-method figures. kelvanectl trace FILE [--stats]. Calls are shown or counted as they are
// read, so a file of any size is read in constant memory.
#pragma once

#include "duration_histogram.hpp"

#include <bounded_lines.hpp>
#include <kelvane/protocol/trace_line.hpp>

#include <cstddef>
#include <functional>
#include <map>
#include <string>

namespace kelvanectl {

struct TracedCall {
    std::string time;
    std::string method;
    std::string params;  // shortened JSON
    kelvane::trace::Outcome outcome = kelvane::trace::Outcome::result;
    std::string detail;  // the shortened result, or the error's code and message
    double milliseconds = 0;
};

// What a reading met besides calls.
struct TraceReading {
    std::size_t notTraceLines = 0;  // lines longer than the bound included
    bool readToTheEnd = true;       // false: a read error stopped it (the lines' problem() says which)
};

// Hands each call of `lines` to `onCall`, in order, and the number of each line longer than the
// bound to `onTooLong`; both go on to the file's end.
TraceReading readTrace(kelvane::tools::BoundedLines& lines, const std::function<void(const TracedCall&)>& onCall,
                       const std::function<void(std::size_t lineNumber)>& onTooLong);

// The call's line of the timeline: time, method, params, outcome, milliseconds, and the result
// or the error.
std::string timelineLine(const TracedCall& call);

// "N lines are not trace lines", or nothing when every line was one.
std::string notTraceLinesNote(const TraceReading& reading);

// The figures of the calls added, by method.
class MethodStatistics {
public:
    void add(const TracedCall& call);
    // One line per method: calls, errors (every failure but a timeout), timeouts, and the p50,
    // p90, p99 and largest duration in ms.
    std::string table() const;

private:
    struct Figures {
        DurationHistogram durations;
        std::size_t errors = 0;
        std::size_t timeouts = 0;
    };
    std::map<std::string, Figures> byMethod_;
};

}  // namespace kelvanectl
