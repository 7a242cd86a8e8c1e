#include "control_request.hpp"

#include "control_surface.hpp"

namespace kelvane::sim {

std::variant<ControlCall, std::string> readControlCall(std::string_view body, int fixtures) {
    auto call = Value::parse(body, nullptr, false);
    if (call.is_discarded()) return "the body is not JSON";
    if (!call.is_object()) return "the body must be a JSON object";
    const Value& fixture = call.contains("fixture") ? call["fixture"] : Value();
    if (!fixture.is_number_integer() || fixture.get<std::int64_t>() < 1 || fixture.get<std::int64_t>() > fixtures) {
        return "\"fixture\" must be a fixture number, 1 to " + std::to_string(fixtures);
    }
    const Value& method = call.contains("method") ? call["method"] : Value();
    if (!method.is_string() || !ControlSurface::handles(method.get<std::string>())) {
        return "\"method\" must name a sim. control method";
    }
    const Value& params = call.contains("params") ? call["params"] : Value();
    if (!params.is_null() && !params.is_object() && !params.is_array()) {
        return "\"params\" must be a dictionary or a list";
    }
    jsonrpc::Request request{0, method.get<std::string>(), Value::array(), nullptr};
    if (params.is_object()) request.params.push_back(params);
    if (params.is_array()) request.params = params;
    return ControlCall{static_cast<int>(fixture.get<std::int64_t>()), std::move(request)};
}

}  // namespace kelvane::sim
