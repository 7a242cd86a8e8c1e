#include "tec/slot_tables.hpp"

namespace kelvane::tec {
namespace {

bool hasEntry(const Value& table, std::int32_t slot) {
    return table.is_array() && slot >= 1 && static_cast<std::size_t>(slot) <= table.size();
}

}  // namespace

Value SlotTables::entry(const Value& table, std::int32_t slot) const {
    std::lock_guard lock(mutex_);
    return hasEntry(table, slot) ? table[static_cast<std::size_t>(slot) - 1] : Value();
}

void SlotTables::setEntry(Value& table, std::int32_t slot, Value value) {
    std::lock_guard lock(mutex_);
    if (hasEntry(table, slot)) table[static_cast<std::size_t>(slot) - 1] = std::move(value);
}

}  // namespace kelvane::tec
