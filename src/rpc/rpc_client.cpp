#include <kelvane/RpcClient.hpp>

namespace kelvane {

std::string RpcError::text() const { return message + " (code " + std::to_string(code) + ")"; }

RpcClient::~RpcClient() = default;

void RpcClient::close() {}

Value RpcClient::rpc(const std::string& method, RpcErrorSlot error) {
    return call(method, Value::array(), nullptr, error);
}

Value RpcClient::rpc(const std::string& method, const Value& args, RpcErrorSlot error) {
    return call(method, args, nullptr, error);
}

Value RpcClient::rpc(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) {
    return call(method, args, kwargs, error);
}

Value callThrough(const std::shared_ptr<RpcClient>& client, const std::string& method, const Value& args,
                  const Value& kwargs, RpcErrorSlot error) {
    if (!client) return nullptr;
    return client->call(method, args, kwargs, error);
}

}  // namespace kelvane
