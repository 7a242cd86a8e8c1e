// The failure records: whole CSV lines of samples that failed a check, shared by all slots.
#pragma once

#include <kelvane/Value.hpp>

#include <mutex>
#include <string>

namespace kelvane::tec {

// A view of the session's record array and the lock that guards it. The lock is the array's
// own: a sampling pass takes it inside the session's object lock (object lock first, record
// lock second, never the other way round); a read-out takes only the record lock.
class FailureRecords {
public:
    FailureRecords(Value& lines, std::mutex& mutex) : lines_(lines), mutex_(mutex) {}

    // Does nothing while the host has put something other than an array in place.
    void append(const std::string& line);
    // Drops every slot's records, as switching any slot on does.
    void clear();
    // A copy of every slot's records: later records do not change it, nor does changing it
    // change the records.
    Value snapshot() const;

private:
    Value& lines_;
    std::mutex& mutex_;
};

}  // namespace kelvane::tec
