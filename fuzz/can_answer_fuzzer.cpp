// The answer reassembly reads whatever frames the controller board hands back. Input: a run of
// frames, each a length byte and that many data bytes; a length byte's top bit turns the frame's
// first element into a text and bit 6 makes the reply an empty dictionary.
#include "can_fuzz_support.hpp"

#include <cstdlib>

using namespace kelvane;

namespace {

// Each decoded frame adds at most 7 characters, so the answer can never outgrow its frames.
constexpr std::size_t textPerFrame = 7;

Value frameReply(std::uint8_t header, const std::uint8_t* bytes, std::size_t count) {
    if (header & 0x40) return Value::object();
    Value data = Value::array();
    for (std::size_t i = 0; i < count; ++i) data.push_back(bytes[i]);
    if ((header & 0x80) && !data.empty()) data[0] = "not a number";
    return Value{{"data", data}};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzBridge link;
    std::size_t frames = 0;
    for (std::size_t at = 0; at < size; ++frames) {
        std::uint8_t header = data[at++];
        std::size_t count = std::min<std::size_t>(header & 0x0f, size - at);
        link.board->replies.push_back(frameReply(header, data + at, count));
        at += count;
    }
    std::size_t answered = 0;
    while (!link.board->replies.empty()) {
        answered += link.bridge.receiveAnswer(1).size();
    }
    if (answered > textPerFrame * frames) std::abort();
    return 0;
}
