// The controller requests received, in order, as "sim.journal" shows them.
#pragma once

#include <kelvane/protocol/json_rpc.hpp>

#include <cstddef>
#include <deque>
#include <limits>
#include <string>
#include <string_view>

namespace kelvane::sim {

class Journal {
public:
    // What one fixture's journal holds at most unless told otherwise (--journal-mb).
    static constexpr std::size_t defaultLimitBytes = std::size_t{4} << 20;

    // Holds the newest entries that fit in `limitBytes`, and always the newest one, so a
    // long-running simulator stays within the limit however many requests it serves.
    explicit Journal(std::size_t limitBytes = defaultLimitBytes) : limitBytes_(limitBytes) {}

    void record(const jsonrpc::Request& request);
    // Marks the newest entry as answered by a script with this action.
    void noteScript(std::string_view action);
    // An array of {"method", "params", "kwargs"}; kwargs null when the request had none, and
    // "script" with the action's name when a script answered. The newest `newest` only, when given.
    Value entries(std::size_t newest = std::numeric_limits<std::size_t>::max()) const;
    // Empties the journal and gives its memory back.
    void clear();

private:
    struct Entry {
        std::string request;  // {"method", "params", "kwargs"} as JSON text: compact, and its size known
        std::string script;
    };
    static std::size_t cost(const Entry& entry);
    void keepWithinLimit();

    std::deque<Entry> entries_;
    std::size_t bytes_ = 0;
    const std::size_t limitBytes_;
};

}  // namespace kelvane::sim
