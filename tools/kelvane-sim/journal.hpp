// The controller requests received, in order, as "sim.journal" shows them.
#pragma once

#include "rpc/json_rpc.hpp"

#include <cstddef>
#include <deque>

namespace kelvane::sim {

class Journal {
public:
    // Only the newest entries are kept, so a long-running simulator does not grow without end.
    static constexpr std::size_t capacity = 100'000;

    void record(const jsonrpc::Request& request);
    // An array of {"method", "params", "kwargs"}; kwargs null when the request had none.
    Value entries() const;
    void clear() { entries_.clear(); }

private:
    std::deque<Value> entries_;
};

}  // namespace kelvane::sim
