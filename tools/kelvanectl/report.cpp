#include "report.hpp"

#include <cmath>
#include <iomanip>
#include <iostream>

namespace kelvanectl {
namespace {

using nlohmann::json;

double roundedToMilliseconds(double seconds) { return std::round(seconds * 1000.0) / 1000.0; }

// A fixture's reply may hold bytes that are not UTF-8 (a decoded hex text, say); they are
// replaced rather than making the output fail.
std::string jsonLine(const Report& report) {
    nlohmann::ordered_json line = nlohmann::ordered_json::object();
    if (!report.fixture.empty()) line["ip"] = report.fixture;
    line["command"] = report.command;
    line["result"] = report.outcome.result;
    line["ok"] = report.outcome.ok;
    line["seconds"] = roundedToMilliseconds(report.seconds);
    if (!report.outcome.ok) line["error"] = report.outcome.problem;
    return line.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

std::string plainResult(const Outcome& outcome) {
    if (!outcome.plain.empty()) return outcome.plain;
    const Result& result = outcome.result;
    return result.is_string() ? result.get<std::string>() : result.dump();
}

int publish(const Report& report, bool json, std::FILE* messages) {
    const Outcome& outcome = report.outcome;
    std::string address = report.fixture.empty() ? "" : report.fixture + ": ";
    if (json) {
        std::cout << jsonLine(report) << std::endl;
    } else if (outcome.ok) {
        std::cout << address << plainResult(outcome);
        if (report.showSeconds) std::cout << std::fixed << std::setprecision(2) << " (" << report.seconds << " s)";
        std::cout << std::endl;
    }
    if (outcome.ok) return exitOk;
    std::fprintf(messages, "kelvanectl: %s%s: %s\n", address.c_str(), report.command.c_str(), outcome.problem.c_str());
    return outcome.failure;
}

}  // namespace kelvanectl
