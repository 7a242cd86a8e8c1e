// How a command's outcome reaches the engineer or the script that ran kelvanectl.
#pragma once

#include "outcome.hpp"

#include <cstdio>
#include <string>

namespace kelvanectl {

struct Report {
    std::string command;  // as typed, e.g. "tray-in" or "fan set"
    Outcome outcome;
    double seconds = 0;        // wall time of the command, connection included
    bool showSeconds = false;  // in the plain form; the JSON form always has them
    std::string fixture{};     // its address when the command ran on several fixtures, else empty
};

// The result as the plain form prints it: a text as it is, a split TEC reading as its line,
// anything else as JSON.
std::string plainResult(const Outcome& outcome);

// Prints the report (plain text, or one JSON object when `json`) on standard output and, when
// the command failed, a message on `messages`; returns the exit status. A report of one fixture
// among several starts with its address ("ip" first in the JSON form).
int publish(const Report& report, bool json, std::FILE* messages);

}  // namespace kelvanectl
