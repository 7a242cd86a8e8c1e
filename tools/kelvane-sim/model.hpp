// One part of the simulated fixture (tray, fans, LEDs, ...): the controller methods it answers,
// the state it shows in "sim.state", and the "sim.set" keys it understands.
#pragma once

#include "outcome.hpp"

#include <kelvane/protocol/json_rpc.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string_view>

namespace kelvane::sim {

// Where the models that change with time (the tray's moves, the TEC sensors' settling) read it:
// the steady clock when serving, a clock the test moves by hand when it holds the fixture in its
// own process. The models compute from it when asked; nothing runs in the background.
using TimeSource = std::function<std::chrono::steady_clock::time_point()>;

enum class SetResult { notMine, applied, badValue };

class Model {
public:
    virtual ~Model() = default;

    virtual bool handles(std::string_view method) const = 0;
    // Called only for methods this model handles.
    virtual Outcome call(const jsonrpc::Request& request) = 0;
    // A dictionary whose entries are merged into the "sim.state" dictionary.
    virtual Value state() const = 0;
    // One entry of a "sim.set" dictionary.
    virtual SetResult set(std::string_view /*key*/, const Value& /*value*/) { return SetResult::notMine; }
    // Back to the state the simulator started in.
    virtual void reset() = 0;
};

// The positional argument at `index`, or null when the request has fewer.
inline const Value& argument(const jsonrpc::Request& request, std::size_t index) {
    static const Value missing;
    return index < request.params.size() ? request.params[index] : missing;
}

}  // namespace kelvane::sim
