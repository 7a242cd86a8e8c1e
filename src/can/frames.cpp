// The CAN frames' format, both ways: a TEC command cut into the frames the TEC controllers
// reassemble, and an answer read back from the frames the controller board hands out.
#include "can/bridge.hpp"

#include "helpers/hex_text.hpp"
#include <kelvane/protocol/methods.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace kelvane::can {
namespace {

// The shape thresholds count hexadecimal digits of the payload. They derive from the frame
// size as (k × 8 − 3) × 2 rather than from what k frames hold; the controllers were built
// against exactly these limits.
constexpr std::size_t frameSize = 8;
constexpr std::size_t singleFrameLimit = (frameSize - 1) * 2;
constexpr std::size_t twoFrameLimit = (2 * frameSize - 3) * 2;
constexpr std::size_t threeFrameLimit = (3 * frameSize - 3) * 2;
constexpr std::size_t fourFrameLimit = (4 * frameSize - 3) * 2;
constexpr std::size_t firstFrameDigits = 12;
constexpr std::size_t consecutiveFrameDigits = 14;
constexpr int firstFrameMark = 0x10;
constexpr long long answerTerminator = 3;

std::vector<std::string> frameTexts(const std::string& payload) {
    const std::size_t digits = payload.size();
    const std::string byteCount = fmt::format("{:02X}", digits / 2);
    if (digits <= singleFrameLimit) return {byteCount + payload};
    if (digits > fourFrameLimit) return {};

    const std::size_t second = firstFrameDigits;
    const std::size_t third = second + consecutiveFrameDigits;
    std::vector<std::string> texts{"10" + byteCount + payload.substr(0, firstFrameDigits)};
    if (digits <= twoFrameLimit) {
        texts.push_back("21" + payload.substr(second));
    } else if (digits <= threeFrameLimit) {
        texts.push_back("21" + payload.substr(second, consecutiveFrameDigits));
        texts.push_back("22" + payload.substr(third));
    } else {
        texts.push_back("21" + payload.substr(second, consecutiveFrameDigits));
        texts.push_back("21" + payload.substr(third, consecutiveFrameDigits));
        texts.push_back("22" + payload.substr(third + consecutiveFrameDigits));
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
    for (std::size_t i = from; i < frameSize; ++i) hexText += fmt::format("{:02X}", buffer[i]);
    return hex::textFromPairs(hexText);
}

// Read like the frame's bytes, but uncut: the last element's integer value must be 3 itself.
bool endsAnswer(const Value& data) {
    return data.is_array() && !data.empty() && integerValue(data.back()) == answerTerminator;
}

}  // namespace

std::vector<Frame> Bridge::framesForCommand(const std::string& command, std::int32_t slot) const {
    files_.appendMonitorLine(slot, "handleCanCMD: " + command);
    const std::string hexText = hex::fromText(command);
    log_.write("hexStr: " + hexText);
    const std::string payload = hexText + "03";
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
