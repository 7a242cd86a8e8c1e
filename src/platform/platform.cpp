#include <kelvane/Platform.hpp>

#include "rpc/rpc_client_wrapper.hpp"
#include "trace/trace_writer.hpp"
#include "trace/tracing_client.hpp"

namespace kelvane {

Platform Platform::defaults() {
    Platform platform;
    platform.clock = systemClock();
    platform.log = standardErrorLog();
    platform.connect = RPCClientWrapper::factory(RPCClientWrapper::Options{});
    platform.trace = traceFileFromEnvironment();
    return platform;
}

std::shared_ptr<RpcClient> Platform::clientFor(const std::string& ip, std::uint32_t port) const {
    std::shared_ptr<RpcClient> client = connect ? connect(ip, port) : nullptr;
    if (!client || !trace) return client;
    return std::make_shared<TracingClient>(std::move(client), trace, clock ? clock : systemClock(),
                                           "tcp://" + ip + ":" + std::to_string(port));
}

std::filesystem::path Platform::resolve(std::string_view stationPath) const {
    return fileRoot / std::filesystem::path(stationPath).relative_path();
}

}  // namespace kelvane
