// The CAN frames' format, both ways: a TEC command cut into the frames the TEC controllers
// reassemble, and an answer read back from the frames the controller board hands out.
#include "can/bridge.hpp"

#include "helpers/hex_text.hpp"
#include <kelvane/protocol/can_bus.hpp>
#include <kelvane/protocol/methods.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace kelvane::can {
namespace {

constexpr std::size_t digitsPerByte = 2;

std::string hexByte(std::size_t value) { return fmt::format("{:02X}", value); }

// The frames' texts: two hexadecimal digits per byte, as the payload's text has them.
std::vector<std::string> frameTexts(const std::string& payload) {
    const std::size_t bytes = payload.size() / digitsPerByte;
    const std::string byteCount = hexByte(bytes);
    if (bytes <= longestSinglePayload) return {byteCount + payload};
    if (bytes > longestCommandPayload) return {};

    std::size_t at = firstFramePayload * digitsPerByte;
    std::vector<std::string> texts{hexByte(firstFrameMark) + byteCount + payload.substr(0, at)};
    const auto marks = consecutiveMarks(bytes);
    for (std::size_t i = 0; i < marks.size(); ++i) {
        const bool last = i + 1 == marks.size();
        const std::size_t digits = last ? std::string::npos : consecutiveFramePayload * digitsPerByte;
        texts.push_back(hexByte(marks[i]) + payload.substr(at, digits));
        at += consecutiveFramePayload * digitsPerByte;
    }
    return texts;
}

// The byte values of a frame's hexadecimal text, logged "decimalStr: ..." as the session's own
// decimalFromHexString logs them.
Frame frameBytes(LogSink& log, std::string_view hex) {
    Frame values = hex::pairValues(hex);
    log.write("decimalStr: " + describe(Value(values)));
    return values;
}

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
    for (std::size_t i = from; i < frameSize; ++i) hexText += hexByte(buffer[i]);
    return hex::textFromPairs(hexText);
}

// Read like the frame's bytes, but uncut: the last element's integer value must be 3 itself.
bool endsAnswer(const Value& data) {
    return data.is_array() && !data.empty() && integerValue(data.back()) == textTerminator;
}

}  // namespace

std::vector<Frame> Bridge::framesForCommand(const std::string& command, std::int32_t slot) const {
    files_.appendMonitorLine(slot, "handleCanCMD: " + command);
    const std::string hexText = hex::fromText(command);
    log_.write("hexStr: " + hexText);
    const std::string payload = hexText + fmt::format("{:02x}", textTerminator);
    log_.write("tmpStr: " + payload);

    std::vector<Frame> frames;
    frames.reserve(10);
    for (const auto& text : frameTexts(payload)) frames.push_back(frameBytes(log_, text));
    files_.appendMonitorLine(slot, "command array will send: " + describe(Value(frames)));
    return frames;
}

std::string Bridge::receiveAnswer(std::int32_t slot) const {
    std::string answer;
    answer.reserve(100);
    for (;;) {
        Value reply = call(methods::canRecv, Value::array());
        // Anything but a dictionary with entries carries no frame.
        if (!reply.is_object() || reply.empty()) {
            log_.write("Fixture can.recv:" + describe(reply));
            break;
        }
        const Value data = reply.value("data", Value());
        files_.appendMonitorLine(slot, "rawdata [0]: " + describe(data));
        answer += frameText(copyFrame(log_, data));
        if (endsAnswer(data)) break;
    }
    files_.appendMonitorLine(slot, "resultStr [0]: " + answer);
    return answer;
}

}  // namespace kelvane::can
