#include <kelvane/Platform.hpp>

#include "rpc/controller_client.hpp"
#include "trace/trace_writer.hpp"

namespace kelvane {

Platform Platform::defaults() {
    Platform platform;
    platform.clock = systemClock();
    platform.log = defaultProcessLog();
    platform.trace = traceFileFromEnvironment();
    return platform;
}

std::shared_ptr<RpcClient> Platform::clientFor(const std::string& ip, std::uint32_t port) const {
    return controllerClientChain(*this, ip, port);
}

std::filesystem::path Platform::resolve(std::string_view stationPath) const {
    return fileRoot / std::filesystem::path(stationPath).relative_path();
}

}  // namespace kelvane
