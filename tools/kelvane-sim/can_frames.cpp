#include "can_frames.hpp"

#include <algorithm>
#include <cstddef>

namespace kelvane::sim {
namespace {

// Answer frames count their sequence byte 0x21..0x2F, then wrap to 0x20.
std::uint8_t answerSequenceByte(std::size_t index) { return static_cast<std::uint8_t>(0x20 | ((index + 1) & 0x0F)); }

}  // namespace

CommandAssembler::Step CommandAssembler::take(const CanFrame& frame) {
    if (frame.empty()) {
        reset();
        return Step::rejected;
    }
    std::uint8_t head = frame[0];
    if (head >= 1 && head <= can::longestSinglePayload) return startSingle(frame);
    if (head == can::firstFrameMark) return startFirst(frame);
    return continueWith(frame);
}

void CommandAssembler::reset() {
    payload_.clear();
    expectedBytes_ = 0;
    sequence_.clear();
}

CommandAssembler::Step CommandAssembler::startSingle(const CanFrame& frame) {
    reset();
    if (frame.size() != std::size_t{frame[0]} + 1) return Step::rejected;
    payload_.assign(frame.begin() + 1, frame.end());
    return finish();
}

CommandAssembler::Step CommandAssembler::startFirst(const CanFrame& frame) {
    reset();
    if (frame.size() != can::frameSize) return Step::rejected;
    std::size_t length = frame[1];
    if (length <= can::longestSinglePayload || length > can::longestCommandPayload) return Step::rejected;
    expectedBytes_ = length;
    sequence_ = can::consecutiveMarks(length);
    payload_.assign(frame.begin() + 2, frame.end());
    return Step::incomplete;
}

// Every consecutive frame but the last is full; the last carries exactly what remains.
CommandAssembler::Step CommandAssembler::continueWith(const CanFrame& frame) {
    if (expectedBytes_ == 0 || frame[0] != sequence_.front()) {
        reset();
        return Step::rejected;
    }
    sequence_.erase(sequence_.begin());
    std::size_t remaining = expectedBytes_ - payload_.size();
    std::size_t carried = sequence_.empty() ? remaining : can::consecutiveFramePayload;
    if (frame.size() != carried + 1) {
        reset();
        return Step::rejected;
    }
    payload_.insert(payload_.end(), frame.begin() + 1, frame.end());
    return sequence_.empty() ? finish() : Step::incomplete;
}

CommandAssembler::Step CommandAssembler::finish() {
    bool terminated = !payload_.empty() && payload_.back() == can::textTerminator;
    if (terminated) command_.assign(payload_.begin(), payload_.end() - 1);
    reset();
    return terminated ? Step::complete : Step::rejected;
}

std::vector<CanFrame> answerFrames(std::string_view text) {
    CanFrame payload(text.begin(), text.end());
    payload.push_back(can::textTerminator);
    if (payload.size() <= can::longestSinglePayload) {
        CanFrame single{static_cast<std::uint8_t>(payload.size())};
        single.insert(single.end(), payload.begin(), payload.end());
        return {single};
    }
    // The length byte holds the low byte of longer answers; the receiver never reads it.
    CanFrame first{can::firstFrameMark, static_cast<std::uint8_t>(payload.size())};
    first.insert(first.end(), payload.begin(), payload.begin() + can::firstFramePayload);
    std::vector<CanFrame> frames{first};
    for (std::size_t at = can::firstFramePayload, index = 0; at < payload.size();
         at += can::consecutiveFramePayload, ++index) {
        CanFrame next{answerSequenceByte(index)};
        auto end =
            payload.begin() + static_cast<std::ptrdiff_t>(std::min(at + can::consecutiveFramePayload, payload.size()));
        next.insert(next.end(), payload.begin() + static_cast<std::ptrdiff_t>(at), end);
        frames.push_back(std::move(next));
    }
    return frames;
}

// A first byte of 0 carries no text for the receiver; the 3 ends the answer.
CanFrame emptyAnswerFrame() { return {0x00, can::textTerminator}; }

}  // namespace kelvane::sim
