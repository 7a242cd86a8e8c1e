#include "trace_reading.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

namespace kelvanectl {
namespace {

constexpr std::size_t shortParams = 40;
constexpr std::size_t shortDetail = 60;

std::string shortened(std::string text, std::size_t length) {
    if (text.size() > length) {
        text.resize(length - 3);
        text += "...";
    }
    return text;
}

std::string jsonText(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

TracedCall callOf(const nlohmann::json& line) {
    TracedCall call;
    call.time = line.value("time", std::string());
    call.method = line.at("method").get<std::string>();
    call.params = shortened(jsonText(line.value("params", nlohmann::json::array())), shortParams);
    call.outcome = line.at("outcome").get<std::string>();
    if (call.outcome == "result") {
        call.detail = shortened(jsonText(line.value("result", nlohmann::json())), shortDetail);
    } else if (call.outcome == "error") {
        const auto& error = line.at("error");
        call.detail = shortened(std::to_string(error.value("code", 0)) + " " +
                                    error.value("message", std::string()),
                                shortDetail);
    }
    call.milliseconds = line.value("ms", 0.0);
    return call;
}

// The nearest-rank percentile of sorted durations.
double percentile(const std::vector<double>& sorted, double fraction) {
    auto rank = static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(sorted.size())));
    return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

std::string format(const char* pattern, auto... values) {
    char text[512];
    std::snprintf(text, sizeof text, pattern, values...);
    return text;
}

}  // namespace

Trace readTrace(std::istream& input) {
    Trace trace;
    std::string text;
    while (std::getline(input, text)) {
        if (text.empty()) continue;
        auto line = nlohmann::json::parse(text, nullptr, false);
        try {
            if (!line.is_object()) throw std::invalid_argument("not an object");
            trace.calls.push_back(callOf(line));
        } catch (const std::exception&) {
            ++trace.unreadableLines;
        }
    }
    return trace;
}

std::string timeline(const Trace& trace) {
    std::string text;
    for (const auto& call : trace.calls) {
        text += format("%-24s %-28s %-40s %-13s %9.1f ms", call.time.c_str(), call.method.c_str(),
                       call.params.c_str(), call.outcome.c_str(), call.milliseconds);
        if (!call.detail.empty()) text += "  " + call.detail;
        text += '\n';
    }
    if (trace.unreadableLines > 0) {
        text += std::to_string(trace.unreadableLines) + " lines are not trace lines\n";
    }
    return text;
}

std::string statistics(const Trace& trace) {
    struct Figures {
        std::vector<double> durations;
        int errors = 0;
        int timeouts = 0;
    };
    std::map<std::string, Figures> byMethod;
    for (const auto& call : trace.calls) {
        auto& figures = byMethod[call.method];
        figures.durations.push_back(call.milliseconds);
        if (call.outcome == "timeout") ++figures.timeouts;
        else if (call.outcome != "result") ++figures.errors;
    }
    std::string text = format("%-28s %7s %7s %8s %9s %9s %9s %9s\n", "method", "calls", "errors",
                              "timeouts", "p50 ms", "p90 ms", "p99 ms", "max ms");
    for (auto& [method, figures] : byMethod) {
        auto& sorted = figures.durations;
        std::sort(sorted.begin(), sorted.end());
        text += format("%-28s %7zu %7d %8d %9.1f %9.1f %9.1f %9.1f\n", method.c_str(),
                       sorted.size(), figures.errors, figures.timeouts, percentile(sorted, 0.5),
                       percentile(sorted, 0.9), percentile(sorted, 0.99), sorted.back());
    }
    return text;
}

}  // namespace kelvanectl
