// The devices behind live C handles. A handle is a number the table hands out, not an address:
// NULL, a destroyed handle and a made-up one all find no device, and no handle is used twice,
// so a stale handle can never reach a device created later.
#pragma once

#include <kelvane/Kelvane.hpp>
#include <kelvane/kelvane.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace kelvane {

class HandleTable {
public:
    // The process's table. It is never destroyed: devices a host never releases stay open
    // until the process ends, as they did before any table existed.
    static HandleTable& instance();

    KelvaneHandle add(std::shared_ptr<Kelvane> device);
    std::shared_ptr<Kelvane> find(KelvaneHandle handle) const;
    // Takes the device out of the table; null when the handle was not in it.
    std::shared_ptr<Kelvane> remove(KelvaneHandle handle);

private:
    mutable std::mutex mutex_;
    std::unordered_map<std::uintptr_t, std::shared_ptr<Kelvane>> devices_;
    std::uintptr_t lastHandle_ = 0;
};

}  // namespace kelvane
