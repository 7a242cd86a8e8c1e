#include "fixture_endpoints.hpp"

#include <kelvane/protocol/controller_port.hpp>

#include <regex>

namespace kelvane::sim {
namespace {

const std::string singleFixtureEndpoint = "tcp://127.0.0.1:" + std::to_string(controllerPort);
const std::string firstStationEndpoint = "tcp://127.0.1.1:" + std::to_string(controllerPort);
constexpr int highestOctet = 255;

}  // namespace

std::variant<std::vector<std::string>, std::string> fixtureEndpoints(const std::optional<std::string>& bind,
                                                                     int fixtures) {
    if (fixtures == 1) return std::vector<std::string>{bind.value_or(singleFixtureEndpoint)};
    std::string first = bind.value_or(firstStationEndpoint);
    static const std::regex ipv4Endpoint(R"(tcp://(\d{1,3}\.\d{1,3}\.\d{1,3}\.)(\d{1,3}):(\*|\d{1,5}))");
    std::smatch parts;
    if (!std::regex_match(first, parts, ipv4Endpoint)) {
        return "several fixtures need --bind tcp://A.B.C.D:PORT, not " + first;
    }
    int lastOctet = std::stoi(parts[2]);
    if (lastOctet + fixtures - 1 > highestOctet) {
        return std::to_string(fixtures) + " fixtures from " + parts[1].str() + parts[2].str() + " run past ." +
               std::to_string(highestOctet);
    }
    std::vector<std::string> endpoints;
    for (int k = 0; k < fixtures; ++k) {
        endpoints.push_back("tcp://" + parts[1].str() + std::to_string(lastOctet + k) + ":" + parts[3].str());
    }
    return endpoints;
}

}  // namespace kelvane::sim
