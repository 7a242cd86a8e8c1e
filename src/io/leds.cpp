// Slot LEDs (steady or blinking) and the fixture's status LED. The controller takes mode words
// in upper case only; the log keeps the caller's spelling.
#include <kelvane/FixtureControl.hpp>

#include <kelvane/protocol/methods.hpp>

#include <fmt/format.h>

namespace kelvane {
namespace {

constexpr std::string_view statusLedTarget = "STATUS";

Value ledArguments(std::string_view target, const std::string& mode) {
    return Value::array({std::string(target), upperCased(mode)});
}

std::string slotLedTarget(std::int32_t slot) { return fmt::format("UUT{}", slot); }

}  // namespace

void FixtureControl::uutLed(std::int32_t slot, const std::string& mode) {
    log(fmt::format("slot{} LED: {}", slot, mode));
    call(methods::ledControl, ledArguments(slotLedTarget(slot), mode));
}

void FixtureControl::uutLedBlink(std::int32_t slot, const std::string& mode) {
    log(fmt::format("slot{} LedBlink: {}", slot, mode));
    call(methods::ledBlinkControl, ledArguments(slotLedTarget(slot), mode));
}

void FixtureControl::stateLed(const std::string& mode) {
    log(fmt::format("STATUS LED: {}", mode));
    call(methods::ledControl, ledArguments(statusLedTarget, mode));
}

}  // namespace kelvane
