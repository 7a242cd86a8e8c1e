// The session's private state. It lives here rather than in the public header so that state
// added for the library's own use (locks, worker threads) never makes a host recompile.
#pragma once

#include <kelvane/FixtureControl.hpp>

#include "platform/worker_thread.hpp"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kelvane {

class FixtureControl::Private {
public:
    explicit Private(Platform services) : platform(std::move(services)) {}

    // The private state of a session; a nested class may reach it, so the library's subsystems
    // and its tests need no friend declaration in the public header.
    static Private& of(FixtureControl& session) { return *session.d_; }

    Platform platform;
    Value fixtureAddress;
    // Per-unit clients (scanners), keyed "Unit<n>". Nothing in the library adds one.
    std::map<std::string, std::shared_ptr<RpcClient>> qorClientDic;
    // Nothing in the library assigns the slot count, so per-slot loops run zero times.
    std::int32_t slotNumber = 0;
    std::int32_t ConnectFlag = 0;
    // Set by close(): loops that poll the controller stop at their next step.
    std::atomic<bool> closed{false};

    // Lock order: objectLock, then recordsMutex; never the other way round. workersMutex is
    // taken alone, and never held while waiting for a worker.
    //
    // Held for a whole TEC sampling pass or on-demand reading, so the CAN exchanges of
    // different slots never interleave. Recursive: a pass may call back into the session.
    std::recursive_mutex objectLock;
    // Guards tecRecordArr's contents for appends and snapshots.
    std::mutex recordsMutex;
    // The workers that tecTempGet can reach; absent until the TEC set-up step. Touched only by
    // tecTempGet and creatTecTempThread, which the host calls from one thread.
    std::optional<std::vector<std::shared_ptr<WorkerThread>>> tecTempThreadArray;
    // Every worker made for this session and not yet finished, also those switched off and
    // ending their last pass, so close() can stop them all.
    std::mutex workersMutex;
    std::vector<std::shared_ptr<WorkerThread>> liveWorkers;
};

}  // namespace kelvane
