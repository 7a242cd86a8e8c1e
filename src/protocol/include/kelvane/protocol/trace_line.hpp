// One line of a trace file: a controller call as the library's tracing client saw it, written
// by the library and read back by `kelvanectl trace` and `kelvane-sim --replay`. One JSON
// object a line, its fields in the order a person reads them (docs/trace.md).
#pragma once

#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kelvane::trace {

// How the call ended, as the client decided it (RpcError::Kind), never guessed from a code.
// trace_line.cpp lists the words in this order.
enum class Outcome { result, error, timeout, notReachable, closed };

// "result", "error", "timeout", "not_reachable", "closed".
std::string_view outcomeWord(Outcome outcome);
Outcome outcomeOf(const std::optional<RpcError>& error);

struct TraceLine {
    std::string time;      // wall-clock start, UTC: "2026-11-22T23:50:04.123Z"
    double t = 0;          // seconds since the first call traced into the file
    std::string endpoint;  // "tcp://IP:PORT"
    std::int64_t id = 0;
    std::string method;
    Value params = Value::array();
    Value kwargs;  // null: the call had none
    Outcome outcome = Outcome::result;
    Value result;       // with Outcome::result
    int errorCode = 0;  // with any other outcome
    std::string errorMessage;
    double ms = 0;  // the call's duration
};

// The line's text, line break included.
std::string encode(const TraceLine& line);

// What a line of a trace file records, or why it is not a trace line. It is one when it is a
// JSON object with a text "method" and a known "outcome", and its other fields, where present,
// have their types ("error" an object); absent ones take TraceLine's defaults.
std::variant<TraceLine, std::string> parse(std::string_view text);

}  // namespace kelvane::trace
