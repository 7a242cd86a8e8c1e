#include "can/receiver.hpp"

#include "helpers/hex_text.hpp"
#include <kelvane/protocol/methods.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace kelvane::can {
namespace {

constexpr std::size_t frameSize = 8;
constexpr int firstFrameMark = 0x10;
constexpr long long answerTerminator = 3;

using FrameBuffer = std::array<unsigned char, frameSize>;

// The frame as the controller board sent it, in a zeroed 8-byte buffer. The board's "data" is
// not trusted: only the first 8 elements are taken, each by its integer value (a text "79" as
// 79, anything without one as 0) cut to its low byte.
FrameBuffer copyFrame(LogSink& log, const Value& data) {
    FrameBuffer buffer{};
    if (!data.is_array()) return buffer;
    const std::size_t count = std::min(data.size(), frameSize);
    for (std::size_t i = 0; i < count; ++i) {
        buffer[i] = static_cast<unsigned char>(integerValue(data[i]));
        log.write(std::to_string(buffer[i]));
    }
    return buffer;
}

// The text a frame carries: a first frame's 6 bytes after its mark and length, or all 7 bytes
// after the first of a single or consecutive frame (a single frame's length is not used, so
// its zero tail is read too and ends the text there). A frame starting with 0 carries none.
std::string frameText(const FrameBuffer& buffer) {
    if (buffer[0] == 0) return {};
    const std::size_t from = buffer[0] == firstFrameMark ? 2 : 1;
    std::string hexText;
    for (std::size_t i = from; i < frameSize; ++i) hexText += fmt::format("{:02X}", buffer[i]);
    return hex::textFromPairs(hexText);
}

// Read like the frame's bytes, but uncut: the last element's integer value must be 3 itself.
bool endsAnswer(const Value& data) {
    return data.is_array() && !data.empty() && integerValue(data.back()) == answerTerminator;
}

}  // namespace

std::string receiveAnswer(const Bridge& bridge, std::int32_t slot) {
    std::string answer;
    answer.reserve(100);
    for (;;) {
        Value reply = bridge.call(methods::canRecv, Value::array(), nullptr);
        // Anything but a dictionary with entries carries no frame.
        if (!reply.is_object() || reply.empty()) {
            bridge.log.write("Fixture can.recv:" + describe(reply));
            break;
        }
        const Value data = reply.value("data", Value());
        bridge.monitorLog(slot, "rawdata [0]: " + describe(data));
        answer += frameText(copyFrame(bridge.log, data));
        if (endsAnswer(data)) break;
    }
    bridge.monitorLog(slot, "resultStr [0]: " + answer);
    return answer;
}

}  // namespace kelvane::can
