// The models that make up the simulated fixture, and the start settings they share.
#pragma once

#include "model.hpp"

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

namespace kelvane::sim {

struct WorldSettings {
    std::chrono::milliseconds travel{300};  // tray IN <-> OUT
    std::chrono::milliseconds lift{200};    // tray UP <-> DOWN
    bool dutPresent = true;
    int tecSlots = 4;        // TEC controllers on the CAN bus, slots 1..n
    std::uint32_t seed = 1;  // of the TEC sensors' noise
};

std::vector<std::unique_ptr<Model>> makeModels(const WorldSettings& settings,
                                               TimeSource now = std::chrono::steady_clock::now);

}  // namespace kelvane::sim
