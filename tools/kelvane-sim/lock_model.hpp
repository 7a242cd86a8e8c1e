// The magnet lock that clamps the fixture: "on" or "off".
#pragma once

#include "model.hpp"

#include <string>

namespace kelvane::sim {

class LockModel final : public Model {
public:
    bool handles(std::string_view method) const override;
    Outcome call(const jsonrpc::Request& request) override;
    Value state() const override;
    void reset() override;

private:
    std::string state_ = "off";
};

}  // namespace kelvane::sim
