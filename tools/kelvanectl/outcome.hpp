// What one kelvanectl command gives: its result, whether the fixture did what was asked, and if
// not, why, in words a station engineer can act on.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace kelvanectl {

// Exit statuses, also listed in the help text.
enum ExitStatus : int {
    exitOk = 0,
    exitRefused = 1,      // the fixture did not do what was asked, or gave no reply
    exitUnreachable = 2,  // no controller answered when the device was created
    exitUsage = 64,
};

// Keys stay in the order they were written, so a split reading reads as its line does.
using Result = nlohmann::ordered_json;

struct Outcome {
    Result result;  // the library's result: a text, null, a number, a boolean, or its fields
    bool ok = false;
    std::string problem;  // set when not ok
    ExitStatus failure = exitRefused;
    std::string plain;  // the plain form when the result is split into fields or says nothing; else empty
};

inline Outcome succeeded(Result result) { return {std::move(result), true, {}, exitOk, {}}; }

inline Outcome failed(Result result, std::string problem, ExitStatus status = exitRefused) {
    return {std::move(result), false, std::move(problem), status, {}};
}

}  // namespace kelvanectl
