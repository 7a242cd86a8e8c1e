// The fans: a speed stored per fan number, read back as a number.
#pragma once

#include "model.hpp"

namespace kelvane::sim {

class FanModel final : public Model {
public:
    bool handles(std::string_view method) const override;
    Outcome call(const jsonrpc::Request& request) override;
    Value state() const override;
    void reset() override;

private:
    Outcome setSpeed(const Value& fan, const Value& speed);
    Outcome speedOf(const Value& fan) const;

    Value speeds_ = Value::object();  // fan number as decimal text -> speed
};

}  // namespace kelvane::sim
