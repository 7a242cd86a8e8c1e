#include "can/bridge.hpp"

#include <kelvane/protocol/can_bus.hpp>
#include <kelvane/protocol/json_rpc.hpp>
#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/replies.hpp>
#include <kelvane/protocol/tec_commands.hpp>

namespace kelvane::can {
namespace {

constexpr int canTimeoutMs = 3000;
constexpr double answerPeriodSeconds = 5.0;
constexpr double pauseAfterReceiveSeconds = 0.1;

bool holdsOk(const std::string& answer) { return upperCased(answer).find(tec::okMark) != std::string::npos; }

}  // namespace

Bridge::Bridge(const Platform& platform, std::shared_ptr<RpcClient> client, Value identifier)
    : client_(std::move(client)),
      clock_(*platform.clock),
      log_(*platform.log),
      files_{platform, std::move(identifier)} {}

Value Bridge::call(std::string_view method, const Value& args) const {
    return callThrough(client_, std::string(method), args, jsonrpc::timeoutKwargs(canTimeoutMs), nullptr);
}

bool Bridge::openChannel(const Value& bitRate) const {
    return describedContains(call(methods::canOpen, Value::array({bitRate})), replies::done);
}

bool Bridge::sendFixedFrame(std::uint32_t messageId, const std::string& command) const {
    Value reply = call(methods::canSend, Value::array({Value(messageId), Value::array({1, 2, 3})}));
    log_.write("Send Can command " + command + (reply.is_null() ? " fail." : " success."));
    return true;
}

bool Bridge::sendCommand(const Value& messageId, const std::string& command, std::int32_t slot) const {
    return sendFrames(messageId, command, slot) && holdsOk(awaitAnswer(slot));
}

std::optional<std::string> Bridge::sendCommandForAnswer(const Value& messageId, const std::string& command,
                                                        std::int32_t slot) const {
    if (!sendFrames(messageId, command, slot)) return std::nullopt;
    std::string answer = awaitAnswer(slot);
    if (answer.empty() || !holdsOk(answer)) {
        log_.write("Can send cmd failed:" + command + "!");
        return std::nullopt;
    }
    return answer;
}

// Sends every frame of the command; stops at the first frame the board does not take.
bool Bridge::sendFrames(const Value& messageId, const std::string& command, std::int32_t slot) const {
    for (const auto& frame : framesForCommand(command, slot)) {
        Value args = Value::array({messageId, Value(frame), std::string(extendedIdMark)});
        if (!isText(call(methods::canSend, args), replies::done)) {
            log_.write("Send can command " + command + " fail.");
            return false;
        }
    }
    return true;
}

// The last answer read within the answer period, or the first one holding "OK". The period is
// tested only after a receive and its pause, so a slow receive can run past it.
std::string Bridge::awaitAnswer(std::int32_t slot) const {
    const double start = clock_.monotonic();
    for (;;) {
        std::string answer = receiveAnswer(slot);
        clock_.sleepFor(pauseAfterReceiveSeconds);
        if (clock_.monotonic() - start >= answerPeriodSeconds || holdsOk(answer)) return answer;
    }
}

}  // namespace kelvane::can
