// The models that make up the simulated fixture, and the start settings they share.
#pragma once

#include "model.hpp"

#include <chrono>
#include <memory>
#include <vector>

namespace kelvane::sim {

struct WorldSettings {
    std::chrono::milliseconds travel{300};  // tray IN <-> OUT
    std::chrono::milliseconds lift{200};    // tray UP <-> DOWN
    bool dutPresent = true;
};

std::vector<std::unique_ptr<Model>> makeModels(const WorldSettings& settings);

}  // namespace kelvane::sim
