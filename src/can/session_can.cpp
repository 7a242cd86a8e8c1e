// The session's CAN members: each makes a bridge from the session's state for its one call.
#include <kelvane/FixtureControl.hpp>

#include "can/frames.hpp"
#include "can/receiver.hpp"
#include "can/senders.hpp"
#include "session/fixture_control_private.hpp"

namespace kelvane {

bool FixtureControl::canConfig(const Value& bitRate) {
    return can::openChannel(d_->canBridge(), bitRate);
}

bool FixtureControl::sendCanCommandWithMessageId(std::uint32_t messageId,
                                                 const std::string& command) {
    return can::sendFixedFrame(d_->canBridge(), messageId, command);
}

Value FixtureControl::handleCanCMD(const std::string& command, std::int32_t slot) {
    Value frames = Value::array();
    for (const auto& frame : can::framesForCommand(d_->canBridge(), command, slot)) {
        frames.push_back(Value(frame));
    }
    return frames;
}

std::string FixtureControl::receiveCanWithSlotId(std::int32_t slot) {
    return can::receiveAnswer(d_->canBridge(), slot);
}

bool FixtureControl::sendCanCommandString(const Value& messageId, const std::string& command,
                                          std::int32_t slot) {
    return can::sendCommand(d_->canBridge(), messageId, command, slot);
}

Value FixtureControl::sendCanCommandStringNeedFeedback(const Value& messageId,
                                                       const std::string& command,
                                                       std::int32_t slot) {
    auto answer = can::sendCommandForAnswer(d_->canBridge(), messageId, command, slot);
    return answer ? Value(*answer) : Value();
}

}  // namespace kelvane
