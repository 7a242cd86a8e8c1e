// One slot's TEC controller: four temperature sensors that settle from the fixture's ambient
// temperature toward the set point, and a power stage whose effort follows the gap. Readings
// follow from the time each call is given, counted since start (or since the set point last
// changed), so nothing runs in the background; the noise comes from a generator seeded per
// slot, so a run repeats exactly.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

namespace kelvane::sim {

class TecController {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr int sensorCount = 4;
    static constexpr double defaultSetPoint = 25.0;
    static constexpr double ambient = 27.0;

    TecController(int slot, std::uint32_t seed, Clock::time_point now);

    // The sensor's reading now, noise-free.
    double temperature(int sensor, Clock::time_point now) const;
    // The answer text to a command; `fixedReading` or `offset` replace or shift the reading of a
    // temperature command (faults). A command the controller does not know gets "ERR".
    std::string answer(const std::string& command, Clock::time_point now,
                       std::optional<double> fixedReading = std::nullopt, double offset = 0.0);
    // The sensor a "get tec temp:N" command reads, or nothing for other commands.
    static std::optional<int> sensorOf(const std::string& command);

    double setPoint() const { return setPoint_; }
    // The sensors settle toward the new set point from where they are now.
    void changeSetPoint(double celsius, Clock::time_point now);
    void reset(Clock::time_point now);

private:
    double noise(double amplitude);
    std::string temperatureAnswer(double celsius) const;
    std::string powerAnswer(Clock::time_point now);

    const std::uint32_t seed_;
    const int slot_;
    std::mt19937 random_;
    double setPoint_ = defaultSetPoint;
    std::array<double, sensorCount> from_{};  // readings when the settling began
    Clock::time_point since_;
};

}  // namespace kelvane::sim
