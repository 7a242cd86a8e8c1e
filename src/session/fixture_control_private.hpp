// The session's private state. It lives here rather than in the public header so that state
// added for the library's own use (locks, worker threads) never makes a host recompile.
#pragma once

#include <kelvane/FixtureControl.hpp>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace kelvane {

class FixtureControl::Private {
public:
    explicit Private(Platform services) : platform(std::move(services)) {}

    // The private state of a session; a nested class may reach it, so the library's subsystems
    // and its tests need no friend declaration in the public header.
    static Private& of(FixtureControl& session) { return *session.d_; }

    Platform platform;
    Value fixtureAddress;
    std::string projectName;  // declared for the station's tools, never set or read
    // Per-unit clients (scanners), keyed "Unit<n>". Nothing in the library adds one.
    std::map<std::string, std::shared_ptr<RpcClient>> qorClientDic;
    Value _muxChannelTable;  // declared for the station's tools, never set or read
    // Nothing in the library assigns the slot count, so per-slot loops run zero times.
    std::int32_t slotNumber = 0;
    std::int32_t ConnectFlag = 0;
    // Set by close(): loops that poll the controller stop at their next step.
    std::atomic<bool> closed{false};
};

}  // namespace kelvane
