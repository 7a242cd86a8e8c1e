// The controller requests received, in order, as "sim.journal" shows them.
#pragma once

#include <kelvane/protocol/json_rpc.hpp>

#include <cstddef>
#include <deque>
#include <string_view>

namespace kelvane::sim {

class Journal {
public:
    // Only the newest entries are kept, so a long-running simulator does not grow without end.
    static constexpr std::size_t capacity = 100'000;

    void record(const jsonrpc::Request& request);
    // Marks the newest entry as answered by a script with this action.
    void noteScript(std::string_view action);
    // An array of {"method", "params", "kwargs"}; kwargs null when the request had none, and
    // "script" with the action's name when a script answered. The newest `newest` only, when given.
    Value entries(std::size_t newest = capacity) const;
    void clear() { entries_.clear(); }

private:
    std::deque<Value> entries_;
};

}  // namespace kelvane::sim
