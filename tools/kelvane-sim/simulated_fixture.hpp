// The whole simulated fixture: its models, asked in order.
#pragma once

#include "model.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvane::sim {

class SimulatedFixture {
public:
    explicit SimulatedFixture(std::vector<std::unique_ptr<Model>> models);

    // The answer of the model that handles the method; nothing when none does.
    std::optional<Outcome> call(const jsonrpc::Request& request);
    // The models' state dictionaries merged into one.
    Value state() const;
    // Applies a "sim.set" dictionary key by key; on a key no model takes, or a bad value, stops
    // there (earlier keys stay applied) and gives the reason.
    std::optional<std::string> set(const Value& changes);
    void reset();

private:
    std::vector<std::unique_ptr<Model>> models_;
};

}  // namespace kelvane::sim
