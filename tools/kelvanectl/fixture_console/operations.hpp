// What the browser console runs on a fixture: kelvanectl's own commands, from the table the
// command line reads (commands.hpp), so the two cannot differ; and the LED commands, which the
// C interface lacks and which go through the device's C++ session. An operation is named as on
// the command line: op "lock" with args ["on"] is `kelvanectl lock on`, op "fan" with args
// ["set", 1, 60] is `kelvanectl fan set 1 60`.
#pragma once

#include "outcome.hpp"

#include <kelvane/kelvane.h>

#include <nlohmann/json.hpp>

#include <functional>
#include <string>
#include <variant>

namespace kelvanectl {

struct Operation {
    std::string name;  // the command's: "tray-in", "fan set"
    std::string line;  // as typed on the command line: "fan set 1 60"
    bool moves = false;
    std::function<Outcome(KelvaneHandle)> run;  // with its arguments
};

// The operation `op` and `args` (a list of the words after the command's name, numbers as
// numbers or words; null for none) name, or why they name none.
std::variant<Operation, std::string> readOperation(const std::string& op, const Result& args);

// An operation's outcome as the console answers it: {"ok", "result" (the library's, as
// kelvanectl --json gives it), "text" (as kelvanectl prints it: the library's text verbatim),
// "seconds" (to the millisecond), and "error" (why it failed) when not ok}.
Result answerJson(const Outcome& outcome, double seconds);

// Every operation: its name, help line, whether it moves the tray, and its parameters (name,
// help, "number" or "word", the words it takes, the least number), for the page's controls.
Result operationList();

}  // namespace kelvanectl
