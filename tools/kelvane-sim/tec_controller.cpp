#include "tec_controller.hpp"

#include <kelvane/protocol/tec_commands.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kelvane::sim {
namespace {

constexpr std::string_view unknownAnswer = "ERR";
static_assert(tec::temperatureCommands.size() == TecController::sensorCount);

// Each sensor sits at its own distance from the cold plate, so each settles at its own pace;
// sensor 4 sits nearer the heat sink and reads a little warmer.
constexpr std::array<double, TecController::sensorCount> settlingSeconds = {6.0, 8.0, 10.0, 12.0};
constexpr std::array<double, TecController::sensorCount> sensorBias = {0.0, 0.0, 0.0, 1.2};
constexpr double temperatureNoise = 0.05;

constexpr double supplyVolts = 12.0;
constexpr double fullEffortAmps = 3.0;
constexpr double currentNoise = 0.01;
// Effort that holds the set point against the ambient, plus effort that closes the gap.
constexpr double holdingGain = 0.15;
constexpr double closingGain = 0.25;

std::string formatted(const char* format, double a, double b = 0, double c = 0, double d = 0) {
    char text[128];
    std::snprintf(text, sizeof text, format, a, b, c, d);
    return text;
}

}  // namespace

TecController::TecController(int slot, std::uint32_t seed, Clock::time_point now) : seed_(seed), slot_(slot) {
    reset(now);
}

void TecController::reset(Clock::time_point now) {
    std::seed_seq sequence{seed_, static_cast<std::uint32_t>(slot_)};
    random_.seed(sequence);
    setPoint_ = defaultSetPoint;
    from_.fill(ambient);
    since_ = now;
}

double TecController::temperature(int sensor, Clock::time_point now) const {
    auto index = static_cast<std::size_t>(sensor - 1);
    double seconds = std::chrono::duration<double>(now - since_).count();
    double settled = std::exp(-seconds / settlingSeconds[index]);
    return setPoint_ + (from_[index] - setPoint_) * settled + sensorBias[index];
}

void TecController::changeSetPoint(double celsius, Clock::time_point now) {
    for (int sensor = 1; sensor <= sensorCount; ++sensor) {
        from_[static_cast<std::size_t>(sensor - 1)] =
            temperature(sensor, now) - sensorBias[static_cast<std::size_t>(sensor - 1)];
    }
    setPoint_ = celsius;
    since_ = now;
}

// Drawn from the generator's raw output, not a distribution, so every standard library gives
// the same sequence for a seed.
double TecController::noise(double amplitude) {
    constexpr std::uint32_t steps = 2001;
    auto step = static_cast<double>(random_() % steps);
    return amplitude * (step / (steps - 1) * 2.0 - 1.0);
}

std::optional<int> TecController::sensorOf(const std::string& command) {
    const auto& commands = tec::temperatureCommands;
    auto found = std::find(commands.begin(), commands.end(), command);
    if (found == commands.end()) return std::nullopt;
    return static_cast<int>(found - commands.begin()) + 1;
}

std::string TecController::answer(const std::string& command, Clock::time_point now, std::optional<double> fixedReading,
                                  double offset) {
    if (auto sensor = sensorOf(command)) {
        double reading = fixedReading ? *fixedReading : temperature(*sensor, now) + offset + noise(temperatureNoise);
        return temperatureAnswer(reading);
    }
    if (command == tec::powerCommand) return powerAnswer(now);
    return std::string(unknownAnswer);
}

std::string TecController::temperatureAnswer(double celsius) const {
    return formatted(tec::temperatureAnswerFormat, celsius);
}

// Positive effort cools, so the PWM duty reads negative while the TEC pulls below ambient.
std::string TecController::powerAnswer(Clock::time_point now) {
    double effort = holdingGain * (ambient - setPoint_) + closingGain * (temperature(1, now) - setPoint_);
    effort = std::clamp(effort, -1.0, 1.0);
    double amps = std::max(0.0, fullEffortAmps * std::abs(effort) + noise(currentNoise));
    return formatted(tec::powerAnswerFormat, supplyVolts, amps, supplyVolts * amps,
                     -100.0 * effort + 0.0);  // + 0.0: no "-0.00" at zero effort
}

}  // namespace kelvane::sim
