// The controller's own service: its mode, and the fixture initialisation command.
#pragma once

#include "model.hpp"

namespace kelvane::sim {

class SessionModel final : public Model {
public:
    bool handles(std::string_view method) const override;
    Outcome call(const jsonrpc::Request& request) override;
    Value state() const override;
    void reset() override;

private:
    bool initialised_ = false;
};

}  // namespace kelvane::sim
