#include "can/senders.hpp"

#include "can/frames.hpp"
#include "can/receiver.hpp"
#include <kelvane/protocol/can_bus.hpp>
#include <kelvane/protocol/methods.hpp>

namespace kelvane::can {
namespace {

constexpr double answerPeriodSeconds = 5.0;
constexpr double pauseAfterReceiveSeconds = 0.1;

bool holdsOk(const std::string& answer) {
    return upperCased(answer).find("OK") != std::string::npos;
}

// Sends every frame of the command; stops at the first frame the board does not take.
bool sendFrames(const Bridge& bridge, const Value& messageId, const std::string& command,
                std::int32_t slot) {
    for (const auto& frame : framesForCommand(bridge, command, slot)) {
        Value args = Value::array({messageId, Value(frame), std::string(extendedIdMark)});
        Value reply = bridge.call(methods::canSend, args, nullptr);
        if (!isText(reply, "done")) {
            bridge.log.write("Send can command " + command + " fail.");
            return false;
        }
    }
    return true;
}

// The last answer read within the answer period, or the first one holding "OK". The period is
// tested only after a receive and its pause, so a slow receive can run past it.
std::string awaitAnswer(const Bridge& bridge, std::int32_t slot) {
    const double start = bridge.clock.monotonic();
    for (;;) {
        std::string answer = receiveAnswer(bridge, slot);
        bridge.clock.sleepFor(pauseAfterReceiveSeconds);
        if (bridge.clock.monotonic() - start >= answerPeriodSeconds || holdsOk(answer)) {
            return answer;
        }
    }
}

}  // namespace

bool openChannel(const Bridge& bridge, const Value& bitRate) {
    return describedContains(bridge.call(methods::canOpen, Value::array({bitRate}), nullptr),
                             "done");
}

bool sendFixedFrame(const Bridge& bridge, std::uint32_t messageId, const std::string& command) {
    Value reply = bridge.call(methods::canSend,
                              Value::array({Value(messageId), Value::array({1, 2, 3})}), nullptr);
    bridge.log.write("Send Can command " + command + (reply.is_null() ? " fail." : " success."));
    return true;
}

bool sendCommand(const Bridge& bridge, const Value& messageId, const std::string& command,
                 std::int32_t slot) {
    return sendFrames(bridge, messageId, command, slot) && holdsOk(awaitAnswer(bridge, slot));
}

std::optional<std::string> sendCommandForAnswer(const Bridge& bridge, const Value& messageId,
                                                const std::string& command, std::int32_t slot) {
    if (!sendFrames(bridge, messageId, command, slot)) return std::nullopt;
    std::string answer = awaitAnswer(bridge, slot);
    if (answer.empty() || !holdsOk(answer)) {
        bridge.log.write("Can send cmd failed:" + command + "!");
        return std::nullopt;
    }
    return answer;
}

}  // namespace kelvane::can
