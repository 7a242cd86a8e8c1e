#include "rpc/controller_client.hpp"

#include "rpc/rpc_client_wrapper.hpp"
#include "trace/tracing_client.hpp"

namespace kelvane {
namespace {

constexpr std::uint32_t lowestPort = 1;
constexpr std::uint32_t highestPort = 65535;

}  // namespace

std::shared_ptr<RpcClient> controllerClientChain(const Platform& platform, const std::string& ip, std::uint32_t port) {
    std::shared_ptr<RpcClient> transport;
    if (platform.connect) {
        transport = platform.connect(ip, port);
    } else {
        RPCClientWrapper::Options options;
        if (platform.callTimeout) options.defaultTimeout = *platform.callTimeout;
        transport = RPCClientWrapper::initWithIP(ip, port, options);
    }
    if (!transport || !platform.trace) return transport;
    return std::make_shared<TracingClient>(std::move(transport), platform.trace,
                                           platform.clock ? platform.clock : systemClock(),
                                           "tcp://" + ip + ":" + std::to_string(port));
}

void ControllerClient::connect(const Platform& platform, const std::string& ip, std::uint32_t port) {
    const bool usablePort = port >= lowestPort && port <= highestPort;
    set(usablePort ? controllerClientChain(platform, ip, port) : nullptr);
}

Value ControllerClient::call(std::string_view method, const Value& args, const Value& kwargs,
                             RpcErrorSlot error) const {
    // Our own reference: a host that replaces the client meanwhile cannot free it under the call.
    return callThrough(get(), std::string(method), args, kwargs, error);
}

void ControllerClient::close() {
    closed_ = true;
    if (auto client = get()) client->close();
}

}  // namespace kelvane
