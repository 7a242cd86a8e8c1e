// Command segmentation cuts any text a caller sends into frames. Whatever the text, the frames
// must carry exactly its bytes and the 0x03 terminator, in the shapes the TEC controllers read,
// or be no frames at all when the payload is too long.
#include "can_fuzz_support.hpp"

#include <cstdlib>
#include <string>

using namespace kelvane;

namespace {

constexpr std::size_t longestPayload = 29;
constexpr std::size_t singleFramePayload = 7;

void check(bool holds) {
    if (!holds) std::abort();
}

std::string payloadOf(const std::vector<can::Frame>& frames) {
    std::string payload;
    if (frames.size() == 1) {
        for (std::size_t i = 1; i < frames[0].size(); ++i) payload += static_cast<char>(frames[0][i]);
        return payload;
    }
    for (std::size_t f = 0; f < frames.size(); ++f) {
        for (std::size_t i = f == 0 ? 2 : 1; i < frames[f].size(); ++i) {
            payload += static_cast<char>(frames[f][i]);
        }
    }
    return payload;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzBridge link;
    const std::string command(reinterpret_cast<const char*>(data), size);
    const auto frames = link.bridge.framesForCommand(command, 1);
    const std::string payload = command + '\x03';
    if (payload.size() > longestPayload) {
        check(frames.empty());
        return 0;
    }
    for (const auto& frame : frames) {
        for (int byte : frame) check(byte >= 0 && byte <= 255);
    }
    check(payloadOf(frames) == payload);
    check(static_cast<std::size_t>(frames[0][frames.size() == 1 ? 0 : 1]) == payload.size());
    if (payload.size() <= singleFramePayload) return check(frames.size() == 1), 0;
    check(frames[0][0] == 0x10 && frames.back()[0] == 0x22 - (frames.size() == 2));
    for (std::size_t f = 1; f + 1 < frames.size(); ++f) check(frames[f][0] == 0x21);
    return 0;
}
