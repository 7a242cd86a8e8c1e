// Faults the TEC controllers and the CAN bridge can be told to show, per slot: readings that fail
// the checks, answers that are missing or unusable, and bus calls that fail. Set as a whole list
// with "sim.set" {"tec_faults": [...]}; each fault applies to a number of events or until cleared.
#pragma once

#include <kelvane/Value.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kelvane::sim {

enum class TecFaultKind {
    lowReading,    // a sensor reads `value` (a temperature command's answer)
    sensorOffset,  // a sensor reads `offset` away from the others
    noAnswer,      // a command gets no answer frames at all
    emptyAnswer,   // a command gets one frame that carries no text
    noOk,          // the answer lacks its closing "OK"
    fail,          // the answer ends in "FAIL" instead of "OK"
    sendRefused,   // "can.send" to the slot answers `reply` instead of "done"
    sendError,     // "can.send" to the slot answers an error
    recvNothing,   // "can.recv" answers null while the slot's frame waits at the head of the bus
};

struct TecFault {
    TecFaultKind kind = TecFaultKind::noAnswer;
    int slot = 1;
    std::optional<std::string> command;  // answer faults: only this command; absent: any
    int sensor = 1;                      // reading faults
    double value = 0.0;                  // lowReading: the reading; sensorOffset: the offset
    Value reply;                         // sendRefused: the reply
    std::optional<std::int64_t> times;   // events left; absent: until cleared

    Value toValue() const;
};

// The faults as listed, in order; the first that matches an event applies to it.
class TecFaults {
public:
    // Reads a whole list (null clears); on a malformed entry nothing changes and the reason is given.
    std::optional<std::string> replace(const Value& list, int slots);
    void clear() { faults_.clear(); }

    // The first fault of one of `kinds` for the slot (and command, for answer faults), counted
    // as used once; nothing when none matches.
    std::optional<TecFault> take(int slot, const std::vector<TecFaultKind>& kinds, const std::string& command = {});
    // The reading fault for the sensor, counted as used once.
    std::optional<TecFault> takeReading(int slot, int sensor);
    // Without counting: whether a fault of this kind waits for the slot.
    bool has(int slot, TecFaultKind kind) const;

    Value describeSlot(int slot) const;

private:
    std::optional<TecFault> use(std::vector<TecFault>::iterator fault);

    std::vector<TecFault> faults_;
};

}  // namespace kelvane::sim
