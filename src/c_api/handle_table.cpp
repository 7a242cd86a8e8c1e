#include "c_api/handle_table.hpp"

namespace kelvane {
namespace {

std::uintptr_t keyOf(KelvaneHandle handle) { return reinterpret_cast<std::uintptr_t>(handle); }

}  // namespace

HandleTable& HandleTable::instance() {
    static auto* table = new HandleTable;
    return *table;
}

KelvaneHandle HandleTable::add(std::shared_ptr<Kelvane> device) {
    std::lock_guard lock(mutex_);
    std::uintptr_t key = ++lastHandle_;
    devices_.emplace(key, std::move(device));
    return reinterpret_cast<KelvaneHandle>(key);
}

std::shared_ptr<Kelvane> HandleTable::find(KelvaneHandle handle) const {
    std::lock_guard lock(mutex_);
    auto found = devices_.find(keyOf(handle));
    return found == devices_.end() ? nullptr : found->second;
}

std::shared_ptr<Kelvane> HandleTable::remove(KelvaneHandle handle) {
    std::lock_guard lock(mutex_);
    auto found = devices_.find(keyOf(handle));
    if (found == devices_.end()) return nullptr;
    auto device = std::move(found->second);
    devices_.erase(found);
    return device;
}

KelvaneHandle handleOf(std::shared_ptr<Kelvane> device) { return HandleTable::instance().add(std::move(device)); }

std::shared_ptr<Kelvane> deviceOf(KelvaneHandle handle) { return HandleTable::instance().find(handle); }

}  // namespace kelvane
