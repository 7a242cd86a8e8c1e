#include "request_reader.hpp"

namespace kelvane::sim {

std::variant<jsonrpc::Request, Rejection, Dropped> readRequest(std::string_view text) {
    Value message = Value::parse(text, nullptr, false);
    if (message.is_discarded() || !message.is_object()) return Dropped{};
    auto id = message.find("id");
    if (id == message.end() || !id->is_number_integer()) return Dropped{};
    auto reject = [&](std::string why) {
        return Rejection{id->get<std::int64_t>(), RpcError{jsonrpc::invalidRequestError, "invalid request: " + why}};
    };
    auto method = message.find("method");
    if (method == message.end() || !method->is_string()) return reject("\"method\" must be a text");
    auto params = message.find("params");
    if (params != message.end() && !params->is_array() && !params->is_null()) {
        return reject("\"params\" must be an array");
    }
    auto kwargs = message.find("kwargs");
    if (kwargs != message.end() && !kwargs->is_object() && !kwargs->is_null()) {
        return reject("\"kwargs\" must be a dictionary");
    }
    auto request = jsonrpc::decodeRequest(text);
    if (!request) return reject("unreadable");
    return *request;
}

}  // namespace kelvane::sim
