// The DUT-presence sensor.
#pragma once

#include "model.hpp"

namespace kelvane::sim {

class DutModel final : public Model {
public:
    explicit DutModel(bool presentAtStart) : presentAtStart_(presentAtStart), present_(presentAtStart) {}

    bool handles(std::string_view method) const override;
    Outcome call(const jsonrpc::Request& request) override;
    Value state() const override;
    SetResult set(std::string_view key, const Value& value) override;
    void reset() override;

private:
    const bool presentAtStart_;
    bool present_;
};

}  // namespace kelvane::sim
