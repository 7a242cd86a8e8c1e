#include "can_bus_model.hpp"

#include <kelvane/protocol/can_bus.hpp>
#include <kelvane/protocol/error_codes.hpp>
#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/replies.hpp>
#include <kelvane/protocol/tec_commands.hpp>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <string>

namespace kelvane::sim {
namespace {

using Kind = TecFaultKind;

constexpr std::int64_t largestStandardId = 0x7FF;
constexpr std::int64_t largestExtendedId = 0x1FFFFFFF;
// The bridge takes frames longer than a CAN frame's 8 bytes: the last frame of a long command
// carries up to 9 payload bytes after its sequence byte.
constexpr std::size_t longestFrame = 16;
// Answers nobody collects are dropped oldest first beyond this, so the bus cannot grow forever.
constexpr std::size_t busCapacity = 1024;

constexpr std::string_view openRefusal = "can_open_refused: the bit rate must be a positive integer";
constexpr std::string_view idRefusal =
    "can_send_refused: the message id must be a non-negative integer or a hexadecimal text";
constexpr std::string_view frameRefusal =
    "can_send_refused: the frame must be a list of 1 to 16 integers from 0 to 255";
constexpr std::string_view standardIdRefusal = "can_send_refused: the message id needs \"EXTEND\" (above 0x7FF)";
constexpr std::string_view extendedIdRefusal = "can_send_refused: the message id is wider than 29 bits";
constexpr int busErrorCode = -32000;
static_assert(jsonrpc::isServerError(busErrorCode));
constexpr std::string_view busErrorMessage = "can.send: bus error";

// A number, or the hexadecimal text of one ("820" or "0x820").
std::optional<std::int64_t> messageIdOf(const Value& id) {
    if (id.is_number_unsigned()) {
        auto wide = std::min<std::uint64_t>(id.get<std::uint64_t>(), largestExtendedId + 1);
        return static_cast<std::int64_t>(wide);  // beyond 29 bits is refused anyway
    }
    if (id.is_number_integer()) {
        if (id.get<std::int64_t>() < 0) return std::nullopt;
        return id.get<std::int64_t>();
    }
    if (!id.is_string()) return std::nullopt;
    std::string_view text = id.get_ref<const std::string&>();
    if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
    if (text.empty() || text.size() > 8) return std::nullopt;
    std::int64_t value = 0;
    for (char c : text) {
        int digit = std::isdigit(static_cast<unsigned char>(c)) ? c - '0'
                    : (c >= 'a' && c <= 'f')                    ? c - 'a' + 10
                    : (c >= 'A' && c <= 'F')                    ? c - 'A' + 10
                                                                : -1;
        if (digit < 0) return std::nullopt;
        value = value * 16 + digit;
    }
    return value;
}

std::optional<CanFrame> frameOf(const Value& data) {
    if (!data.is_array() || data.empty() || data.size() > longestFrame) return std::nullopt;
    CanFrame frame;
    for (const auto& byte : data) {
        if (!byte.is_number_integer() || integerValue(byte) < 0 || integerValue(byte) > 255) {
            return std::nullopt;
        }
        frame.push_back(static_cast<std::uint8_t>(integerValue(byte)));
    }
    return frame;
}

Value dataOf(const CanFrame& frame) {
    Value data = Value::array();
    for (auto byte : frame) data.push_back(byte);
    return data;
}

std::string withoutOk(std::string text) {
    if (text.ends_with(tec::okEnding)) text.resize(text.size() - tec::okEnding.size());
    return text;
}

double hundredths(double value) { return std::round(value * 100.0) / 100.0; }

// A "sim.set" slot key: decimal digits only ("2").
std::optional<int> slotNumberOf(const std::string& key) {
    constexpr std::size_t longestKey = 3;
    if (key.empty() || key.size() > longestKey) return std::nullopt;
    int number = 0;
    for (char c : key) {
        if (!std::isdigit(static_cast<unsigned char>(c))) return std::nullopt;
        number = number * 10 + (c - '0');
    }
    return number;
}

}  // namespace

CanBusModel::CanBusModel(int slots, std::uint32_t seed, TimeSource now) : now_(std::move(now)) {
    for (int number = 1; number <= slots; ++number) slots_.emplace_back(TecController(number, seed, now_()));
}

bool CanBusModel::handles(std::string_view method) const {
    return method == methods::canOpen || method == methods::canSend || method == methods::canRecv;
}

Outcome CanBusModel::call(const jsonrpc::Request& request) {
    if (request.method == methods::canOpen) return open(request);
    if (request.method == methods::canSend) return send(request);
    return receive();
}

Outcome CanBusModel::open(const jsonrpc::Request& request) {
    const Value& bitRate = argument(request, 0);
    if (!bitRate.is_number_integer() || integerValue(bitRate) <= 0) return Outcome::reply(openRefusal);
    bitRate_ = integerValue(bitRate);
    return Outcome::reply(replies::done);
}

Outcome CanBusModel::send(const jsonrpc::Request& request) {
    auto id = messageIdOf(argument(request, 0));
    if (!id) return Outcome::reply(idRefusal);
    bool extended = isText(argument(request, 2), can::extendedIdMark);
    if (*id > largestExtendedId) return Outcome::reply(extendedIdRefusal);
    if (!extended && *id > largestStandardId) return Outcome::reply(standardIdRefusal);
    auto frame = frameOf(argument(request, 1));
    if (!frame) return Outcome::reply(frameRefusal);

    auto slot = slotAt(*id);
    if (slot) {
        if (auto fault = faults_.take(*slot, {Kind::sendRefused, Kind::sendError})) {
            if (fault->kind == Kind::sendError) {
                return Outcome::failure(busErrorCode, std::string(busErrorMessage));
            }
            return Outcome::reply(fault->reply);
        }
    }
    ++framesSent_;
    if (slot) deliver(*slot, *frame);
    return Outcome::reply(replies::done);
}

// A fault holds the frame at the head back: the bridge reports nothing although a frame waits.
Outcome CanBusModel::receive() {
    if (bus_.empty()) return Outcome::reply(Value::object());
    if (faults_.take(bus_.front().slot, {Kind::recvNothing})) return Outcome::reply(nullptr);
    Value reply = {{"data", dataOf(bus_.front().data)}};
    bus_.pop_front();
    ++framesReceived_;
    return Outcome::reply(reply);
}

void CanBusModel::deliver(int number, const CanFrame& frame) {
    Slot& target = slot(number);
    ++target.framesIn;
    auto step = target.assembler.take(frame);
    if (step == CommandAssembler::Step::rejected) ++target.rejectedFrames;
    if (step != CommandAssembler::Step::complete) return;
    ++target.commands;
    target.lastCommand = target.assembler.command();
    answer(number, target.lastCommand);
}

void CanBusModel::answer(int number, const std::string& command) {
    auto fault = faults_.take(number, {Kind::noAnswer, Kind::emptyAnswer, Kind::noOk, Kind::fail}, command);
    if (fault && fault->kind == Kind::noAnswer) return;
    if (fault && fault->kind == Kind::emptyAnswer) {
        queue(number, emptyAnswerFrame());
        return;
    }
    std::optional<double> fixedReading;
    double offset = 0.0;
    if (auto sensor = TecController::sensorOf(command)) {
        if (auto reading = faults_.takeReading(number, *sensor)) {
            if (reading->kind == Kind::lowReading) {
                fixedReading = reading->value;
            } else {
                offset = reading->value;
            }
        }
    }
    std::string text = slot(number).controller.answer(command, now_(), fixedReading, offset);
    if (fault && fault->kind == Kind::noOk) text = withoutOk(text);
    if (fault && fault->kind == Kind::fail) text = withoutOk(text) + std::string(tec::failEnding);
    for (const auto& frame : answerFrames(text)) queue(number, frame);
}

void CanBusModel::queue(int number, const CanFrame& frame) {
    if (bus_.size() == busCapacity) {
        bus_.pop_front();
        ++framesDropped_;
    }
    bus_.push_back({number, frame});
    ++slot(number).framesOut;
}

std::optional<int> CanBusModel::slotAt(std::int64_t messageId) const {
    std::int64_t index = messageId - can::tecMessageId(1);
    if (index < 0 || index >= static_cast<std::int64_t>(slots_.size())) return std::nullopt;
    return static_cast<int>(index + 1);
}

Value CanBusModel::state() const {
    auto now = now_();
    Value tec = Value::object();
    for (int number = 1; number <= static_cast<int>(slots_.size()); ++number) {
        const Slot& shown = slots_[static_cast<std::size_t>(number - 1)];
        Value temperatures = Value::array();
        for (int sensor = 1; sensor <= TecController::sensorCount; ++sensor) {
            temperatures.push_back(hundredths(shown.controller.temperature(sensor, now)));
        }
        tec[std::to_string(number)] = {{"message_id", can::tecMessageId(number)},
                                       {"set_point", shown.controller.setPoint()},
                                       {"temperatures", temperatures},
                                       {"frames_in", shown.framesIn},
                                       {"frames_out", shown.framesOut},
                                       {"commands", shown.commands},
                                       {"rejected_frames", shown.rejectedFrames},
                                       {"last_command", shown.lastCommand},
                                       {"faults", faults_.describeSlot(number)}};
    }
    Value can = {{"bit_rate", bitRate_ ? Value(*bitRate_) : Value()},
                 {"queued_frames", bus_.size()},
                 {"frames_sent", framesSent_},
                 {"frames_received", framesReceived_},
                 {"frames_dropped", framesDropped_}};
    return {{"can", can}, {"tec", tec}};
}

SetResult CanBusModel::set(std::string_view key, const Value& value) {
    if (key == "tec_faults") {
        return faults_.replace(value, static_cast<int>(slots_.size())) ? SetResult::badValue : SetResult::applied;
    }
    if (key == "tec_set_points") return setSetPoints(value);
    return SetResult::notMine;
}

// {"2": 30.0} moves slot 2's set point; the sensors settle toward it from where they are.
SetResult CanBusModel::setSetPoints(const Value& value) {
    constexpr double coldest = -40.0;
    constexpr double warmest = 120.0;
    if (!value.is_object()) return SetResult::badValue;
    for (const auto& [key, celsius] : value.items()) {
        auto number = slotNumberOf(key);
        if (!number || !slotAt(can::tecMessageId(*number)) || !celsius.is_number()) {
            return SetResult::badValue;
        }
        if (celsius.get<double>() < coldest || celsius.get<double>() > warmest) return SetResult::badValue;
    }
    auto now = now_();
    for (const auto& [key, celsius] : value.items()) {
        slot(*slotNumberOf(key)).controller.changeSetPoint(celsius.get<double>(), now);
    }
    return SetResult::applied;
}

void CanBusModel::reset() {
    auto now = now_();
    for (auto& each : slots_) {
        each.controller.reset(now);
        each.assembler.reset();
        each.framesIn = each.framesOut = each.commands = each.rejectedFrames = 0;
        each.lastCommand.clear();
    }
    faults_.clear();
    bus_.clear();
    bitRate_.reset();
    framesSent_ = framesReceived_ = framesDropped_ = 0;
}

}  // namespace kelvane::sim
