// The settings a C host gives one device (KelvaneOptions), and the Platform they make.
#pragma once

#include <kelvane/Platform.hpp>
#include <kelvane/kelvane.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace kelvane {

// A host's options as read: an empty field is one the host left at its default.
struct DeviceOptions {
    std::uint32_t port = KELVANE_CONTROLLER_PORT;
    std::optional<std::chrono::milliseconds> callTimeout;
    std::optional<std::string> traceFile;  // "" for no trace
    std::uint64_t traceMaxBytes = 0;       // 0: the environment's limit, else 64 MiB
    std::optional<std::string> logRoute;
};

// The options as far as the host's struct reaches (its `size`); all defaults for NULL. Nothing
// when they make no sense: a size smaller than the size field, a port outside 0 to 65535.
std::optional<DeviceOptions> readDeviceOptions(const KelvaneOptions* options);

// The default platform, with the call timeout, trace and log the options set.
Platform platformFor(const DeviceOptions& options);

}  // namespace kelvane
