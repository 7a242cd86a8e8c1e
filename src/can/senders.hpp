// Opening the CAN channel and sending frames and whole TEC commands through the controller
// board. Every operation blocks the calling thread for its exchange and never throws.
#pragma once

#include "can/bridge.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace kelvane::can {

// "can.open" with the bit rate as given; true when the reply's printed text holds "done".
bool openChannel(const Bridge& bridge, const Value& bitRate);

// Puts one frame with the data 1, 2, 3 on the bus under `messageId`, whatever `command` holds.
// Logs whether the board took it; always true.
bool sendFixedFrame(const Bridge& bridge, std::uint32_t messageId, const std::string& command);

// Sends `command` to the controller at `messageId` (passed to the board as it is: the TEC code
// gives an integer) and waits up to 5 s for an answer holding "OK" in any letter case. False
// when a frame is refused or no such answer came.
bool sendCommand(const Bridge& bridge, const Value& messageId, const std::string& command,
                 std::int32_t slot);

// As sendCommand, but gives the answer (letter case as received), or nothing on failure.
std::optional<std::string> sendCommandForAnswer(const Bridge& bridge, const Value& messageId,
                                                const std::string& command, std::int32_t slot);

}  // namespace kelvane::can
