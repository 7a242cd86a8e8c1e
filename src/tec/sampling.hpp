// One sampling pass of a slot's TEC controller: four temperatures and the power stage, turned
// into a CSV line, checked, and kept as a failure record when a check fails.
#pragma once

#include "tec/failure_records.hpp"
#include "tec/slot_tables.hpp"

#include <kelvane/Platform.hpp>
#include <kelvane/Value.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace kelvane::tec {

// Sends one command to a slot's TEC controller and gives its answer, or nothing when none came:
// the CAN bridge's feedback sender.
using CommandLink = std::function<std::optional<std::string>(
    const Value& messageId, const std::string& command, std::int32_t slot)>;

// Appends a line to a slot's CSV file.
using CsvWriter = std::function<void(std::int32_t slot, const std::string& line)>;

struct Sampler {
    CommandLink send;
    Clock& clock;  // the warm-up pause; wall time for the line's time stamp
    LogSink& log;
    CsvWriter saveCsv;
};

// The message identifier of a slot's TEC controller on the bus.
Value canMessageId(std::int32_t slot);

// One pass of a slot's worker. While the slot's flag is "NO" it is a warm-up pass: a 1 s pause
// and one temperature read, logged; the 11th marks the slot stable. Otherwise it is a
// measurement pass: the line goes to the CSV file and is checked against the minimum
// temperature and the agreement of sensors 1 to 3; a failing line is logged and recorded (twice
// when it fails both). Never throws for any answer.
//
// The caller holds the session's object lock for the whole pass, so the exchanges of different
// slots never interleave; the pass takes the failure records' lock inside it.
void samplingPass(const Sampler& sampler, SlotTables& tables, FailureRecords& records,
                  std::int32_t slot, const Value& messageId);

// One measurement pass on demand, under the slot's own identifier: the CSV line (or the line
// naming the missing answers) is returned, not written, and no check is made. The warm-up
// state is not touched. The caller holds the session's object lock, as for a pass.
std::string readingOnDemand(const Sampler& sampler, const SlotTables& tables, std::int32_t slot);

}  // namespace kelvane::tec
