// The fixture's CAN bus as the controller board bridges it ("can.send", "can.recv"): where
// each slot's TEC controller listens, and how a frame asks for an extended identifier.
#pragma once

#include <cstdint>
#include <string_view>

namespace kelvane::can {

// Slot 1's TEC controller listens at this message id; slot n's at the n-th id from it.
inline constexpr std::int64_t slotOneTecMessageId = 2080;

constexpr std::int64_t tecMessageId(std::int64_t slot) { return slotOneTecMessageId + slot - 1; }

// The third argument of "can.send" that sends the frame under an extended (29-bit) identifier.
// The TEC controllers' ids lie above the 11-bit range, so their frames carry it.
inline constexpr std::string_view extendedIdMark = "EXTEND";

}  // namespace kelvane::can
