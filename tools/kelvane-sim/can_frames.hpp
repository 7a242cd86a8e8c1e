// The segmented text transfer of the TEC controllers over CAN: the controller's side. Commands
// come in as the library cuts them (a single frame, or a first frame and a fixed number of
// consecutive frames, never padded); answers go out as first and consecutive frames whose last
// byte is the 0x03 terminator.
#pragma once

#include <kelvane/protocol/can_bus.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane::sim {

using CanFrame = std::vector<std::uint8_t>;

// One controller's reassembly of incoming command frames. A frame out of shape (wrong sequence
// byte, wrong length, no terminator where the command must end) drops the command under way;
// a new single or first frame always starts a command afresh.
class CommandAssembler {
public:
    enum class Step { incomplete, complete, rejected };

    Step take(const CanFrame& frame);
    // The text of the command that the last `complete` step finished.
    const std::string& command() const { return command_; }
    void reset();

private:
    Step startSingle(const CanFrame& frame);
    Step startFirst(const CanFrame& frame);
    Step continueWith(const CanFrame& frame);
    Step finish();

    std::vector<std::uint8_t> payload_;   // bytes so far, terminator included
    std::size_t expectedBytes_ = 0;       // the first frame's length byte; 0 = nothing under way
    std::vector<std::uint8_t> sequence_;  // sequence bytes still to come, in order
    std::string command_;
};

// The frames that carry `text` plus the terminator back to the library.
std::vector<CanFrame> answerFrames(std::string_view text);

// A frame that carries no text at all, yet ends an answer: what an empty answer looks like.
CanFrame emptyAnswerFrame();

}  // namespace kelvane::sim
