// The session's state, behind the public header so that state added for the library's own use
// never makes a host recompile. The session owns each subsystem object below; FixtureControl's
// members forward to them, each defined in its subsystem's folder.
#pragma once

#include <kelvane/FixtureControl.hpp>

#include "barcode/units.hpp"
#include "can/bridge.hpp"
#include "motion/motion.hpp"
#include "platform/guarded_value.hpp"
#include "rpc/controller_client.hpp"
#include "tec/monitor.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace kelvane {

class FixtureControl::Private {
public:
    explicit Private(Platform services) : platform(withEveryService(std::move(services))) {}

    // A CAN bridge for one operation: the client and the identifier as they are now.
    can::Bridge canBridge() const { return {platform, controller.get(), identifier.get()}; }

    Platform platform;
    // The controller board's client (the fixtureControlClient property), and whether the
    // session was closed.
    ControllerClient controller;
    // Properties; each value under a lock of its own.
    GuardedValue<std::shared_ptr<std::thread>> threadReset;
    GuardedValue<Value> identifier;
    GuardedValue<Value> toPology;
    GuardedValue<std::string> fixtureId;
    // Written by creation only.
    Value fixtureAddress;
    std::int32_t ConnectFlag = 0;

    Units units{*platform.log};
    Motion motion{controller, *platform.clock, *platform.log};
    tec::TecMonitor tec{controller, platform, identifier};

private:
    // A host that leaves a service out gets the real one, so no operation meets an empty seam.
    static Platform withEveryService(Platform platform) {
        if (!platform.clock) platform.clock = systemClock();
        if (!platform.log) platform.log = defaultProcessLog();
        return platform;
    }
};

}  // namespace kelvane
