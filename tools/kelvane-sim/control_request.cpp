#include "control_request.hpp"

#include "control_surface.hpp"

#include <algorithm>
#include <cctype>

namespace kelvane::sim {
namespace {

constexpr int forbidden = 403;

bool isLoopback(std::string_view host) { return host.starts_with("127."); }

// Browsers resolve "localhost" to the loopback address themselves, so it cannot be rebound.
bool namesPanel(const PanelAddress& panel, std::string_view hostAndPort) {
    auto port = ":" + std::to_string(panel.port);
    return hostAndPort == panel.host + port || (isLoopback(panel.host) && hostAndPort == "localhost" + port);
}

bool isJson(std::string_view contentType) {
    auto mediaType = contentType.substr(0, contentType.find(';'));
    while (!mediaType.empty() && mediaType.back() == ' ') mediaType.remove_suffix(1);
    std::string lower(mediaType);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower == "application/json";
}

Refusal badRequest(std::string problem) { return {400, std::move(problem)}; }

}  // namespace

std::optional<Refusal> refuseForeign(const PanelAddress& panel, std::string_view host, std::string_view origin,
                                     std::string_view contentType) {
    if (!namesPanel(panel, host)) return Refusal{forbidden, "Host must name the panel's own address and port"};
    constexpr std::string_view scheme = "http://";
    if (!origin.empty() && !(origin.starts_with(scheme) && namesPanel(panel, origin.substr(scheme.size())))) {
        return Refusal{forbidden, "Origin must be the panel's own page"};
    }
    if (!isJson(contentType)) return Refusal{forbidden, "Content-Type must be application/json"};
    return std::nullopt;
}

std::variant<ControlCall, Refusal> readControlCall(std::string_view body, int fixtures) {
    auto call = Value::parse(body, nullptr, false);
    if (call.is_discarded()) return badRequest("the body is not JSON");
    if (!call.is_object()) return badRequest("the body must be a JSON object");
    const Value& fixture = call.contains("fixture") ? call["fixture"] : Value();
    if (!fixture.is_number_integer() || fixture.get<std::int64_t>() < 1 || fixture.get<std::int64_t>() > fixtures) {
        return badRequest("\"fixture\" must be a fixture number, 1 to " + std::to_string(fixtures));
    }
    const Value& method = call.contains("method") ? call["method"] : Value();
    if (!method.is_string() || !ControlSurface::handles(method.get<std::string>())) {
        return badRequest("\"method\" must name a sim. control method");
    }
    const Value& params = call.contains("params") ? call["params"] : Value();
    if (!params.is_null() && !params.is_object() && !params.is_array()) {
        return badRequest("\"params\" must be a dictionary or a list");
    }
    jsonrpc::Request request{0, method.get<std::string>(), Value::array(), nullptr};
    if (params.is_object()) request.params.push_back(params);
    if (params.is_array()) request.params = params;
    return ControlCall{static_cast<int>(fixture.get<std::int64_t>()), std::move(request)};
}

}  // namespace kelvane::sim
