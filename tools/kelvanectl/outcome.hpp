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

struct Outcome {
    nlohmann::json result;  // the library's result: a text, null, a number or a boolean
    bool ok = false;
    std::string problem;  // set when not ok
    ExitStatus failure = exitRefused;
};

inline Outcome succeeded(nlohmann::json result) { return {std::move(result), true, {}, exitOk}; }

inline Outcome failed(nlohmann::json result, std::string problem, ExitStatus status = exitRefused) {
    return {std::move(result), false, std::move(problem), status};
}

}  // namespace kelvanectl
