// The controller board's CAN bridge ("can.open", "can.send", "can.recv") and the bus behind it,
// with one TEC controller per slot at the slot's message id. Commands sent to a controller are
// reassembled from their frames; its answer frames queue on the bus, in the order answered,
// until "can.recv" takes them one by one. The bus is shared: whoever receives next gets the
// frame at its head, whichever slot it came from.
#pragma once

#include "can_frames.hpp"
#include "model.hpp"
#include "tec_controller.hpp"
#include "tec_faults.hpp"

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace kelvane::sim {

class CanBusModel final : public Model {
public:
    CanBusModel(int slots, std::uint32_t seed, TimeSource now);

    bool handles(std::string_view method) const override;
    Outcome call(const jsonrpc::Request& request) override;
    Value state() const override;
    SetResult set(std::string_view key, const Value& value) override;
    void reset() override;

private:
    struct Slot {
        explicit Slot(TecController tec) : controller(std::move(tec)) {}

        TecController controller;
        CommandAssembler assembler;
        std::int64_t framesIn = 0;   // frames the controller took
        std::int64_t framesOut = 0;  // answer frames it queued
        std::int64_t commands = 0;   // commands it reassembled
        std::int64_t rejectedFrames = 0;
        std::string lastCommand;
    };
    struct QueuedFrame {
        int slot;
        CanFrame data;
    };

    Outcome open(const jsonrpc::Request& request);
    Outcome send(const jsonrpc::Request& request);
    Outcome receive();
    void deliver(int slot, const CanFrame& frame);
    void answer(int slot, const std::string& command);
    void queue(int slot, const CanFrame& frame);
    std::optional<int> slotAt(std::int64_t messageId) const;
    Slot& slot(int number) { return slots_[static_cast<std::size_t>(number - 1)]; }
    SetResult setSetPoints(const Value& value);

    const TimeSource now_;
    std::vector<Slot> slots_;
    TecFaults faults_;
    std::deque<QueuedFrame> bus_;
    std::optional<long long> bitRate_;  // since the last "can.open"
    std::int64_t framesSent_ = 0;       // "can.send" calls answered "done"
    std::int64_t framesReceived_ = 0;   // frames handed out by "can.recv"
    std::int64_t framesDropped_ = 0;    // oldest frames dropped from a full bus queue
};

}  // namespace kelvane::sim
