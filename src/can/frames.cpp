#include "can/frames.hpp"

#include "helpers/hex_text.hpp"

#include <fmt/format.h>

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

}  // namespace

Frame decimalFromHexString(LogSink& log, std::string_view hex) {
    Frame values = hex::pairValues(hex);
    log.write("decimalStr: " + describe(Value(values)));
    return values;
}

std::vector<Frame> framesForCommand(const Bridge& bridge, const std::string& command,
                                    std::int32_t slot) {
    bridge.monitorLog(slot, "handleCanCMD: " + command);
    const std::string hexText = hex::fromText(command);
    bridge.log.write("hexStr: " + hexText);
    const std::string payload = hexText + "03";
    bridge.log.write("tmpStr: " + payload);

    std::vector<Frame> frames;
    frames.reserve(10);
    for (const auto& text : frameTexts(payload)) {
        frames.push_back(decimalFromHexString(bridge.log, text));
    }
    bridge.monitorLog(slot, "command array will send: " + describe(Value(frames)));
    return frames;
}

}  // namespace kelvane::can
