// A TEC reading as tecTempRecord returns it: one CSV line, or the line that says an answer of
// the TEC controller was missing. Turned into an outcome whose JSON form splits the fields.
#pragma once

#include "outcome.hpp"

namespace kelvanectl {

// Succeeds for a reading line ("timestamp,s1,s2,s3,s4,pwm,current,item"), with the result
// {"timestamp", "sensors": [4], "pwm", "current", "item"} for --json and the line itself,
// without its line end, for the plain form. Fails (exit 1) for NULL and for the missing-answer
// line (result {"missing": true, "line"}) or any line that does not read as a reading.
Outcome tecReading(const char* line);

}  // namespace kelvanectl
