// Cutting a TEC command text into the CAN frames the TEC controllers reassemble.
#pragma once

#include "can/bridge.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace kelvane::can {

// The data bytes of one frame, each 0..255.
using Frame = std::vector<int>;

// The byte values of a hexadecimal text, one per pair of characters, logged "decimalStr: ..." to
// the process log. Throws std::out_of_range for an odd length (frame texts are always even).
Frame decimalFromHexString(LogSink& log, std::string_view hex);

// The frames of a command in sending order. The payload is the command's UTF-8 bytes and a 0x03
// terminator. Up to 7 payload bytes go in one single frame (byte count, payload). Longer payloads
// get a first frame (0x10, byte count, 6 bytes) and consecutive frames 0x21 (two frames),
// 0x21 0x22 (three) or 0x21 0x21 0x22 (four): the controllers expect that repeated 0x21. The last
// frame takes the rest unpadded, so it may run past 8 bytes. More than 29 payload bytes give no
// frame at all. Progress goes to the process log and to the slot's monitor log.
std::vector<Frame> framesForCommand(const Bridge& bridge, const std::string& command,
                                    std::int32_t slot);

}  // namespace kelvane::can
