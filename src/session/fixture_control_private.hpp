// The session's private state. It lives here rather than in the public header so that state
// added for the library's own use (locks, worker threads) never makes a host recompile.
#pragma once

#include <kelvane/FixtureControl.hpp>

#include "can/bridge.hpp"
#include "platform/worker_thread.hpp"
#include "tec/failure_records.hpp"
#include "tec/files.hpp"
#include "tec/sampling.hpp"
#include "tec/slot_tables.hpp"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kelvane {

class FixtureControl::Private {
public:
    explicit Private(Platform services) : platform(std::move(services)) {}

    // For the library's tests, which seed and inspect state no operation exposes (the slot
    // count, per-unit clients, the worker array). The subsystems get what they need passed in.
    static Private& of(FixtureControl& session) { return *session.d_; }

    // A property's value, copied under the state lock.
    template <class T>
    T read(const T& property) const {
        std::lock_guard lock(stateMutex);
        return property;
    }
    // Replaces a property under the state lock. The old value is released after the lock, so a
    // client's destructor never runs under it.
    template <class T>
    void write(T& property, T value) {
        std::lock_guard lock(stateMutex);
        std::swap(property, value);
    }

    // The views the subsystems work through, made from the session's state when an operation
    // starts: the client and the identifier are those of that moment for the whole operation.
    can::Bridge canBridge() const;
    tec::TecFiles tecFiles() const;
    tec::Sampler sampler() const;
    tec::SlotTables slotTables() {
        return {tecTempStableFlag, tecTempTimes, tecRecordItemNameArray, stateMutex};
    }
    tec::FailureRecords failureRecords() { return {tecRecordArr, recordsMutex}; }

    Platform platform;
    Value fixtureAddress;
    // Per-unit clients (scanners), keyed "Unit<n>". Nothing in the library adds one.
    std::map<std::string, std::shared_ptr<RpcClient>> qorClientDic;
    // Nothing in the library assigns the slot count, so per-slot loops run zero times.
    std::int32_t slotNumber = 0;
    std::int32_t ConnectFlag = 0;
    // Set by close(): loops that poll the controller stop at their next step.
    std::atomic<bool> closed{false};

    // Lock order: objectLock, then stateMutex or recordsMutex; never the other way round, and
    // never stateMutex and recordsMutex together. Those two are held only to copy or replace a
    // value (a property, a table entry), never across a call, a sleep or a write to a file or
    // the log. workersMutex is taken alone, and never held while waiting for a worker.
    //
    // Held for a whole TEC sampling pass or on-demand reading, so the CAN exchanges of
    // different slots never interleave. Recursive: a pass may call back into the session.
    std::recursive_mutex objectLock;

    // The properties, guarded by stateMutex.
    mutable std::mutex stateMutex;
    std::shared_ptr<RpcClient> fixtureControlClient;
    std::shared_ptr<std::thread> threadReset;
    Value identifier;
    Value toPology;
    std::string fixtureId;
    std::string tecTempLogPath;
    std::string tecVersion;
    Value tecRecordItemNameArray;  // the per-slot tables: nil until the TEC set-up step
    Value tecTempStableFlag;
    Value tecTempTimes;

    // The failure records, guarded by their own lock, which getTecRecord takes alone.
    mutable std::mutex recordsMutex;
    Value tecRecordArr = Value::array();

    // The workers that tecTempGet can reach; absent until the TEC set-up step. Touched only by
    // tecTempGet and creatTecTempThread, which the host calls from one thread.
    std::optional<std::vector<std::shared_ptr<WorkerThread>>> tecTempThreadArray;
    // Every worker made for this session and not yet finished, also those switched off and
    // ending their last pass, so close() can stop them all.
    std::mutex workersMutex;
    std::vector<std::shared_ptr<WorkerThread>> liveWorkers;
};

}  // namespace kelvane
