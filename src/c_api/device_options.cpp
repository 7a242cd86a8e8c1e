#include "c_api/device_options.hpp"

#include "trace/trace_writer.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace kelvane {
namespace {

constexpr int highestPort = 65535;
constexpr std::uint64_t bytesPerMegabyte = 1024 * 1024;
constexpr std::uint64_t mostMegabytes = std::numeric_limits<std::uint64_t>::max() / bytesPerMegabyte;

// The field's value when the host's struct holds the whole field, else its default (zero): a
// host built against an older header has a shorter struct, and nothing past its end is read.
template <typename Field>
Field held(const KelvaneOptions& options, const Field& field) {
    auto offset = reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&options);
    return options.size >= static_cast<std::size_t>(offset) + sizeof(Field) ? field : Field{};
}

}  // namespace

std::optional<DeviceOptions> readDeviceOptions(const KelvaneOptions* options) {
    DeviceOptions read;
    if (!options) return read;
    if (options->size < sizeof options->size) return std::nullopt;
    int port = held(*options, options->port);
    if (port < 0 || port > highestPort) return std::nullopt;
    if (port != 0) read.port = static_cast<std::uint32_t>(port);
    if (int timeout = held(*options, options->callTimeoutMs); timeout > 0) {
        read.callTimeout = std::chrono::milliseconds(timeout);
    }
    if (const char* path = held(*options, options->traceFile)) read.traceFile = path;
    std::uint64_t megabytes = held(*options, options->traceMaxMB);
    read.traceMaxBytes = std::min(megabytes, mostMegabytes) * bytesPerMegabyte;
    if (const char* route = held(*options, options->log)) read.logRoute = route;
    return read;
}

Platform platformFor(const DeviceOptions& options) {
    Platform platform = Platform::defaults();
    platform.callTimeout = options.callTimeout;
    if (options.traceFile) {
        auto limit = options.traceMaxBytes ? options.traceMaxBytes : traceLimitFromEnvironment();
        platform.trace = options.traceFile->empty() ? nullptr : traceFile(*options.traceFile, limit);
    }
    if (options.logRoute) platform.log = processLogRoutedBy(*options.logRoute);
    return platform;
}

}  // namespace kelvane
