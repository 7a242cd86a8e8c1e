// The session's per-slot TEC tables, reached one entry at a time.
#pragma once

#include <kelvane/Value.hpp>

#include <cstdint>
#include <mutex>
#include <utility>

namespace kelvane::tec {

// A view of the session's tables (arrays indexed by slot − 1) and of the state lock that guards
// them. Each read or write of an entry takes the lock for that entry alone, so a host replacing
// a table meanwhile never tears it, and never waits for a pass. While the host has not set a
// table up (nil, or no entry for the slot) reading its entry gives nil and writing does nothing.
class SlotTables {
public:
    SlotTables(Value& stableFlags, Value& warmUpPasses, const Value& itemNames, std::mutex& mutex)
        : stableFlags_(stableFlags), warmUpPasses_(warmUpPasses), itemNames_(itemNames),
          mutex_(mutex) {}

    // "YES", or "NO" while the slot still has to warm up.
    Value stableFlag(std::int32_t slot) const { return entry(stableFlags_, slot); }
    void setStableFlag(std::int32_t slot, Value flag) {
        setEntry(stableFlags_, slot, std::move(flag));
    }
    // Warm-up passes made since the last reset.
    Value warmUpPasses(std::int32_t slot) const { return entry(warmUpPasses_, slot); }
    void setWarmUpPasses(std::int32_t slot, Value passes) {
        setEntry(warmUpPasses_, slot, std::move(passes));
    }
    // The test step running in the slot: the CSV line's last column.
    Value itemName(std::int32_t slot) const { return entry(itemNames_, slot); }

private:
    Value entry(const Value& table, std::int32_t slot) const;
    void setEntry(Value& table, std::int32_t slot, Value value);

    Value& stableFlags_;
    Value& warmUpPasses_;
    const Value& itemNames_;
    std::mutex& mutex_;
};

}  // namespace kelvane::tec
