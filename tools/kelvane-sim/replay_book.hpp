// ReplayBook: a recorded trace (KELVANE_TRACE) as the answers of a simulated controller. Each
// request takes the earliest unused recorded exchange with the same method and params; what the
// controller did then is done again: the same result or error, or silence where the client
// had timed out or could not reach it. See docs/trace.md.
#pragma once

#include "outcome.hpp"

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kelvane::sim {

struct ReplayedAnswer {
    std::optional<Outcome> outcome;  // nothing: no reply at all
    std::chrono::milliseconds recordedDuration{0};
};

class ReplayBook {
public:
    // The exchanges of a trace file, or why it cannot be read: the first line that is not a
    // trace line (a line longer than the trace lines' bound is not one), or a read error. Calls
    // the client refused itself ("closed") never reached a controller and are left out.
    static std::variant<ReplayBook, std::string> load(const std::string& path);

    // The recorded answer to this request, or nothing when the trace holds no exchange with its
    // method and params. A request asked more often than recorded gets the last recorded answer
    // again: a host polling a sensor until a deadline polls more often when answers come sooner
    // than on the line, and must keep seeing what the sensor said last.
    std::optional<ReplayedAnswer> take(const jsonrpc::Request& request);

    std::size_t size() const { return exchanges_.size(); }
    bool allUsed() const { return replayed_ == exchanges_.size(); }

    // What was replayed, what had no match and what was never asked for, as JSON and as text.
    Value report() const;
    std::string reportText() const;

private:
    struct Exchange {
        std::string method;
        Value params;
        ReplayedAnswer answer;
        bool used = false;
    };
    struct Queue {
        std::deque<std::size_t> unused;   // indexes into exchanges_, oldest first
        std::optional<std::size_t> last;  // the one used most recently
    };

    void add(Exchange exchange);

    std::vector<Exchange> exchanges_;
    std::map<std::string, Queue> byRequest_;  // by method and params
    std::size_t replayed_ = 0;
    std::size_t repeated_ = 0;
    Value unmatched_ = Value::array();
};

}  // namespace kelvane::sim
