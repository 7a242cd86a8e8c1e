// The two text files each slot's TEC monitoring leaves in the test sequencer's per-slot log
// folder: the sample CSV and the time-stamped monitor log.
#pragma once

#include <kelvane/Platform.hpp>
#include <kelvane/Value.hpp>

#include <cstdint>
#include <string>

namespace kelvane::tec {

// The station paths of a slot's files. The folder's group is the number after "Fixture" in the
// identifier, minus one (-1 without such a number); the identifier also names the files.
std::string monitorLogPath(const Value& identifier, std::int32_t slot);
std::string csvPath(const Value& identifier, std::int32_t slot);

// Appends to a slot's files. Each write forms the path anew, creates the file when it is missing
// (never its folder), appends and closes it; a text that is not all ASCII is not written. No
// failure reaches the caller: a file that cannot be opened (no slot folder: a slot the station
// does not test) loses the line quietly; a write that fails once it is open (a full disk) loses
// TEC data and is logged.
// Takes no lock: two writers of one slot may append to the same file at once.
struct TecFiles {
    const Platform& platform;  // file root, the clock for time stamps, the process log
    Value identifier;          // the session's, as it was when the view was made

    // One line "<time stamp>:    <text>\r\n"; the stamp is local time "YYYY-MM-dd HH:mm:ss:SSSS"
    // (week-based year, four fraction digits).
    void appendMonitorLine(std::int32_t slot, const std::string& text) const;
    // The text as it is; callers end their lines themselves.
    void appendCsv(std::int32_t slot, const std::string& text) const;
};

}  // namespace kelvane::tec
