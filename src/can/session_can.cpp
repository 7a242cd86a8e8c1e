// The session's CAN members: each makes a bridge from the session's state for its one call.
#include <kelvane/FixtureControl.hpp>

#include "can/frames.hpp"
#include "can/receiver.hpp"
#include "can/senders.hpp"
#include "session/fixture_control_private.hpp"

namespace kelvane {
namespace {

// The client is copied into the bridge, so a host that replaces the session's client during an
// exchange cannot destroy it under the exchange.
can::Bridge bridgeOf(FixtureControl& session) {
    const Platform& platform = FixtureControl::Private::of(session).platform;
    return can::Bridge{session.fixtureControlClient, *platform.clock, *platform.log,
                       [&session](std::int32_t slot, const std::string& text) {
                           session.saveTecMonitorLogInfo(slot, text);
                       }};
}

}  // namespace

bool FixtureControl::canConfig(const Value& bitRate) {
    return can::openChannel(bridgeOf(*this), bitRate);
}

bool FixtureControl::sendCanCommandWithMessageId(std::uint32_t messageId,
                                                 const std::string& command) {
    return can::sendFixedFrame(bridgeOf(*this), messageId, command);
}

Value FixtureControl::handleCanCMD(const std::string& command, std::int32_t slot) {
    Value frames = Value::array();
    for (const auto& frame : can::framesForCommand(bridgeOf(*this), command, slot)) {
        frames.push_back(Value(frame));
    }
    return frames;
}

std::string FixtureControl::receiveCanWithSlotId(std::int32_t slot) {
    return can::receiveAnswer(bridgeOf(*this), slot);
}

bool FixtureControl::sendCanCommandString(const Value& messageId, const std::string& command,
                                          std::int32_t slot) {
    return can::sendCommand(bridgeOf(*this), messageId, command, slot);
}

Value FixtureControl::sendCanCommandStringNeedFeedback(const Value& messageId,
                                                       const std::string& command,
                                                       std::int32_t slot) {
    auto answer = can::sendCommandForAnswer(bridgeOf(*this), messageId, command, slot);
    return answer ? Value(*answer) : Value();
}

}  // namespace kelvane
