// The fixture's IO lines: a state stored per line number.
#pragma once

#include "model.hpp"

namespace kelvane::sim {

class IoModel final : public Model {
public:
    bool handles(std::string_view method) const override;
    Outcome call(const jsonrpc::Request& request) override;
    Value state() const override;
    void reset() override;

private:
    Value lines_ = Value::object();  // line number as decimal text -> state
};

}  // namespace kelvane::sim
