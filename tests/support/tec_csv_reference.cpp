// Prints, as JSON, what the library writes to a TEC CSV file (the header, reading lines of
// samples on both sides of each check, a missing-answer line) and how it judges each sample: the
// Python package's test holds kelvane.tec's copy of the layout and the checks against it.
#include "platform/local_time.hpp"
#include <kelvane/Value.hpp>
#include <kelvane/protocol/tec_csv.hpp>

#include <ctime>
#include <iostream>

int main() {
    using namespace kelvane;
    std::tm local{};  // 2 January 2026, 14:04:05.250 local time
    local.tm_year = 126, local.tm_mday = 2, local.tm_hour = 14, local.tm_min = 4, local.tm_sec = 5;
    local.tm_isdst = -1;
    const std::string stamp = formatLocalTime(double(std::mktime(&local)) + 0.25, tec::measurementTimeStamp);
    // The limits themselves, sensor 4 below the floor alone, and 3 degrees apart as doubles but
    // not as floats, and the other way round.
    const tec::TecSample samples[] = {{{21.5f, 21.5f, 21.5f, 21.5f}, -35.2f, 1.25f},
                                      {{21.49f, 21.49f, 21.49f, 21.49f}, 0, 0},
                                      {{25, 25, 25, 21.49f}, 0, 0},
                                      {{25, 28, 25, 25}, 0, 0},
                                      {{29.08f, 32.08f, 30, 30}, 0, 0},
                                      {{29.02f, 32.02f, 30, 30}, 0, 0}};
    Value readings = Value::array();
    for (const auto& sample : samples) {
        readings.push_back({{"line", tec::readingLine(stamp, sample, "step")},
                            {"below", tec::belowMinimum(sample)},
                            {"apart", tec::sensorsDisagree(sample)}});
    }
    const std::string answer = "TEC temp: 25.00 C OK";
    std::cout << Value{{"header", std::string(tec::csvHeader) + std::string(tec::csvLineEnd)},
                       {"floor", tec::minimumTemperature},
                       {"band", tec::sensorAgreementBand},
                       {"readings", readings},
                       {"missing", tec::missingAnswerLine(stamp, {answer, answer, "", answer, describe(Value())})}}
                     .dump()
              << "\n";
}
