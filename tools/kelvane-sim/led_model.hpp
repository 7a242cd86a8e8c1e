// The slot LEDs ("UUT<n>") and the status LED ("STATUS"): a mode word, steady or blinking.
#pragma once

#include "model.hpp"

namespace kelvane::sim {

class LedModel final : public Model {
public:
    bool handles(std::string_view method) const override;
    Outcome call(const jsonrpc::Request& request) override;
    Value state() const override;
    void reset() override;

private:
    Value leds_ = Value::object();  // target -> {"mode", "blink"}
};

}  // namespace kelvane::sim
