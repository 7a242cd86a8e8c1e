// The session's CAN members: each runs on a bridge made from the session's client and
// identifier of the moment it starts.
#include <kelvane/FixtureControl.hpp>

#include "can/bridge.hpp"
#include "session/fixture_control_private.hpp"

namespace kelvane {

bool FixtureControl::canConfig(const Value& bitRate) { return d_->canBridge().openChannel(bitRate); }

bool FixtureControl::sendCanCommandWithMessageId(std::uint32_t messageId, const std::string& command) {
    return d_->canBridge().sendFixedFrame(messageId, command);
}

Value FixtureControl::handleCanCMD(const std::string& command, std::int32_t slot) {
    Value frames = Value::array();
    for (const auto& frame : d_->canBridge().framesForCommand(command, slot)) {
        frames.push_back(Value(frame));
    }
    return frames;
}

std::string FixtureControl::receiveCanWithSlotId(std::int32_t slot) { return d_->canBridge().receiveAnswer(slot); }

bool FixtureControl::sendCanCommandString(const Value& messageId, const std::string& command, std::int32_t slot) {
    return d_->canBridge().sendCommand(messageId, command, slot);
}

Value FixtureControl::sendCanCommandStringNeedFeedback(const Value& messageId, const std::string& command,
                                                       std::int32_t slot) {
    auto answer = d_->canBridge().sendCommandForAnswer(messageId, command, slot);
    return answer ? Value(*answer) : Value();
}

}  // namespace kelvane
