#include "tec_reading.hpp"

#include <kelvane/protocol/tec_csv.hpp>

#include <string>
#include <string_view>

namespace kelvanectl {

namespace tec = kelvane::tec;

Outcome tecReading(const char* text) {
    if (!text) return failed(nullptr, "the fixture controller gave no reply");
    std::string_view line = tec::withoutLineEnd(text);
    if (tec::isMissingAnswerLine(line)) {
        return failed(Result{{"missing", true}, {"line", line}},
                      "an answer of the TEC controller was missing or empty: " + std::string(line));
    }
    auto reading = tec::readReadingLine(line);
    if (!reading) return failed(line, "not a TEC reading: " + std::string(line));
    const auto& sensors = reading->sensors;
    Outcome outcome = succeeded(Result{{"timestamp", reading->timeStamp},
                                       {"sensors", {sensors[0], sensors[1], sensors[2], sensors[3]}},
                                       {"pwm", reading->pwm},
                                       {"current", reading->current},
                                       {"item", reading->item}});
    outcome.plain = line;
    return outcome;
}

}  // namespace kelvanectl
