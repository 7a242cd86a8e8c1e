// Reading a trace file that the library wrote (KELVANE_TRACE): a timeline a person can follow,
// or per-method figures. kelvanectl trace FILE [--stats].
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace kelvanectl {

struct TracedCall {
    std::string time;
    std::string method;
    std::string params;   // shortened JSON
    std::string outcome;  // "result", "error", "timeout", "not_reachable" or "closed"
    std::string detail;   // the shortened result, or the error's code and message
    double milliseconds = 0;
};

struct Trace {
    std::vector<TracedCall> calls;
    std::size_t unreadableLines = 0;
};

Trace readTrace(std::istream& input);

// One line per call: time, method, params, outcome, milliseconds.
std::string timeline(const Trace& trace);
// One line per method: calls, errors (every failure but a timeout), timeouts, and the p50, p90,
// p99 and largest duration in ms.
std::string statistics(const Trace& trace);

}  // namespace kelvanectl
