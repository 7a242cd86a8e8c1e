#include <kelvane/Platform.hpp>

#include "rpc/rpc_client_wrapper.hpp"

namespace kelvane {

Platform Platform::defaults() {
    Platform platform;
    platform.clock = systemClock();
    platform.log = standardErrorLog();
    platform.connect = [](const std::string& ip, std::uint32_t port) -> std::shared_ptr<RpcClient> {
        return RPCClientWrapper::initWithIP(ip, port);
    };
    return platform;
}

std::filesystem::path Platform::resolve(std::string_view stationPath) const {
    return fileRoot / std::filesystem::path(stationPath).relative_path();
}

}  // namespace kelvane
