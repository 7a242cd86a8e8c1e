// The fixture's CAN bus as the controller board bridges it ("can.send", "can.recv"): where
// each slot's TEC controller listens, how a frame asks for an extended identifier, and how a
// TEC controller's text travels in frames, both ways.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kelvane::can {

// Slot 1's TEC controller listens at this message id; slot n's at the n-th id from it.
inline constexpr std::int64_t slotOneTecMessageId = 2080;

constexpr std::int64_t tecMessageId(std::int64_t slot) { return slotOneTecMessageId + slot - 1; }

// The third argument of "can.send" that sends the frame under an extended (29-bit) identifier.
// The TEC controllers' ids lie above the 11-bit range, so their frames carry it.
inline constexpr std::string_view extendedIdMark = "EXTEND";

// A text (a command, or a controller's answer) travels as its bytes and this terminator: the
// payload. A frame whose last byte is the terminator ends an answer.
inline constexpr std::uint8_t textTerminator = 0x03;

// A payload that fits goes in one single frame: its byte count, then the payload. A longer one
// gets a first frame (the mark, the byte count, 6 payload bytes) and consecutive frames, each a
// mark and up to 7 payload bytes. No frame is padded.
inline constexpr std::size_t frameSize = 8;
inline constexpr std::size_t longestSinglePayload = frameSize - 1;
inline constexpr std::size_t firstFramePayload = frameSize - 2;
inline constexpr std::size_t consecutiveFramePayload = frameSize - 1;
inline constexpr std::uint8_t firstFrameMark = 0x10;
inline constexpr std::uint8_t firstConsecutiveMark = 0x21;
inline constexpr std::uint8_t lastConsecutiveMark = 0x22;

// A command cut into k frames holds at most k × 8 − 3 payload bytes, rather than what k frames
// carry, so its last frame takes whatever remains and may pass 8 bytes; no command takes more
// than four frames. The controllers were built against exactly these limits.
constexpr std::size_t commandPayloadLimit(std::size_t frames) { return frames * frameSize - 3; }
inline constexpr std::size_t longestCommandPayload = commandPayloadLimit(4);

// The marks of a command's consecutive frames, in sending order, for a payload longer than a
// single frame holds and at most longestCommandPayload bytes. The four-frame shape repeats
// 0x21 on purpose: that is the sequence the controllers are served.
inline std::vector<std::uint8_t> consecutiveMarks(std::size_t payloadBytes) {
    if (payloadBytes <= commandPayloadLimit(2)) return {firstConsecutiveMark};
    if (payloadBytes <= commandPayloadLimit(3)) return {firstConsecutiveMark, lastConsecutiveMark};
    return {firstConsecutiveMark, firstConsecutiveMark, lastConsecutiveMark};
}

}  // namespace kelvane::can
