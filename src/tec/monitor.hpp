// TEC monitoring of one session: the slots' worker threads, the per-slot tables, the failure
// records, and the sampling passes, which talk to each slot's TEC controller through the CAN
// bridge (can/bridge.hpp) and write the slot's TEC files (tec/files.hpp).
//
// Locks, in the order they are taken; none is taken while a later one is held:
// 1. The object lock (objectLock_, recursive): held for a whole sampling pass or on-demand
//    reading, up to tens of seconds with a silent controller, so the CAN exchanges of different
//    slots never interleave. Nothing else takes it: host operations, CAN commands included, and
//    the properties run while a pass is under way.
// 2. Then at most one of: the tables' lock (SlotTables), the failure records' lock
//    (FailureRecords), or a lock of the session's own values (GuardedValue: its properties, the
//    controller's client). Each is held only to copy or replace one value, never across a call,
//    a sleep or a write to a file or the log. A pass takes them inside the object lock; a host's
//    property get or set, or getTecRecord, takes one alone and never waits for a pass.
// 3. workersMutex_: taken alone, and never held while waiting for a worker.
#pragma once

#include <kelvane/Platform.hpp>
#include <kelvane/Value.hpp>

#include "platform/guarded_value.hpp"
#include "platform/worker_thread.hpp"
#include "rpc/controller_client.hpp"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kelvane::tec {

// The per-slot tables, arrays indexed by slot - 1, nil until the TEC set-up step: the test step
// running in each slot (the CSV lines' last column), whether the slot has warmed up ("YES"; a
// host sets "NO" to ask for a warm-up), and the warm-up passes made since the last reset. A
// host reads and replaces a whole table; a pass reads and writes one entry at a time. While a
// table is not set up (nil, or no entry for the slot), its entry reads nil and writing one does
// nothing. Every member is safe from any thread, and takes the tables' lock for itself alone.
class SlotTables {
public:
    enum Table { itemNames, stableFlags, warmUpPasses };

    Value table(Table table) const {
        std::lock_guard lock(mutex_);
        return tables_[table];
    }
    void setTable(Table table, Value value) {
        std::lock_guard lock(mutex_);
        std::swap(tables_[table], value);
    }
    Value entry(Table table, std::int32_t slot) const {
        std::lock_guard lock(mutex_);
        return hasEntry(table, slot) ? tables_[table][index(slot)] : Value();
    }
    void setEntry(Table table, std::int32_t slot, Value value) {
        std::lock_guard lock(mutex_);
        if (hasEntry(table, slot)) tables_[table][index(slot)] = std::move(value);
    }

private:
    static std::size_t index(std::int32_t slot) { return static_cast<std::size_t>(slot) - 1; }
    bool hasEntry(Table table, std::int32_t slot) const {
        return tables_[table].is_array() && slot >= 1 && index(slot) < tables_[table].size();
    }

    mutable std::mutex mutex_;
    std::array<Value, 3> tables_;
};

// The failure records: whole CSV lines of samples that failed a check, shared by all slots, in
// the order found. Every member is safe from any thread, and takes the records' own lock for
// itself alone; a pass appends inside the object lock.
class FailureRecords {
public:
    // Does nothing while the host has put something other than an array in place.
    void append(const std::string& line) {
        std::lock_guard lock(mutex_);
        if (lines_.is_array()) lines_.push_back(line);
    }
    // Drops every slot's records, as switching any slot on does.
    void clear() {
        std::lock_guard lock(mutex_);
        if (lines_.is_array()) lines_.clear();
    }
    // A copy of every slot's records, always an array: later records do not change it, nor does
    // changing it change the records.
    Value snapshot() const {
        std::lock_guard lock(mutex_);
        return lines_.is_array() ? lines_ : Value::array();
    }
    // The property: whatever the host put in place.
    Value get() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }
    void set(Value lines) {
        std::lock_guard lock(mutex_);
        std::swap(lines_, lines);
    }

private:
    mutable std::mutex mutex_;
    Value lines_ = Value::array();
};

// The message identifier of a slot's TEC controller on the bus.
Value canMessageId(std::int32_t slot);

// Who may call: switching (tecTempGet, creatTecTempThread) from one host thread; passes from the
// slots' workers and, on demand, from host threads; files, tables, records and close() from any
// thread (close() not from a worker's own thread, where it does not wait for that worker).
class TecMonitor {
public:
    // Borrows the session's client, platform and identifier, which outlive the monitor.
    TecMonitor(const ControllerClient& controller, const Platform& platform, const GuardedValue<Value>& identifier)
        : controller_(controller), platform_(platform), identifier_(identifier) {}

    // monitor.cpp: set-up, switching slots on and off, the workers, the files.

    // The TEC set-up step: opens the CAN channel at 500 kbit/s, then creates the worker array and
    // the tables for `slotCount` slots ("NOT SET", "YES", 0). False, with "need TEC,Config Can
    // fail." logged, when the channel does not open.
    bool setUpTecMonitoring(std::int32_t slotCount);
    // As FixtureControl::tecTempGet and creatTecTempThread. A running worker keeps `owner` (the
    // session, which owns this monitor) alive; one never started does not.
    void tecTempGet(std::int32_t slot, const std::string& state, std::weak_ptr<const void> owner);
    void creatTecTempThread(std::int32_t slot, std::weak_ptr<const void> owner);
    // Appends to the slot's files under the identifier of now.
    void saveTecMonitorLogInfo(std::int32_t slot, const std::string& text) const;
    void saveTecTemplog(std::int32_t slot, const std::string& text) const;
    // Cancels every worker this monitor made and waits until each has ended; a session closed
    // meanwhile gets no running worker.
    void close();

    // sampling.cpp: the passes, each under the object lock, with the client and the identifier
    // taken once when it starts.

    // One sampling pass of the slot's TEC controller at `messageId`. While the slot's flag is
    // "NO" it is a warm-up pass: a 1 s pause and one temperature read, logged; the 11th marks the
    // slot stable. Otherwise it is a measurement pass: the line goes to the CSV file and is
    // checked against the minimum temperature and the agreement of sensors 1 to 3; a failing
    // line is logged and recorded (twice when it fails both). Never throws for any answer.
    void tecTempRecord(std::int32_t slot, const Value& messageId);
    // One measurement on demand at the slot's own message id: the CSV line (or the line naming
    // the missing answers) is returned; nothing is written, checked or recorded, and the
    // warm-up state is not touched.
    std::string tecTempRecord2(std::int32_t slot);

    SlotTables& tables() { return tables_; }
    FailureRecords& records() { return records_; }
    // Kept for the host (properties the station interface has), never read here; the set-up
    // step sets tecTempLogPath "".
    GuardedValue<std::string> tecTempLogPath, tecVersion;

private:
    void runWorker(const WorkerThread::Handle& self, std::int32_t slot);

    const ControllerClient& controller_;
    const Platform& platform_;
    const GuardedValue<Value>& identifier_;

    std::recursive_mutex objectLock_;
    SlotTables tables_;
    FailureRecords records_;

    // The workers tecTempGet can reach (tecTempThreadArray); absent until the set-up step.
    // Touched only by tecTempGet and creatTecTempThread, which the host calls from one thread.
    std::optional<std::vector<std::shared_ptr<WorkerThread>>> tecTempThreadArray_;
    // Every worker made and not yet finished, also those switched off and ending their last
    // pass, so close() can stop them all.
    std::mutex workersMutex_;
    std::vector<std::shared_ptr<WorkerThread>> liveWorkers_;
    std::atomic<bool> closed_{false};
};

}  // namespace kelvane::tec
