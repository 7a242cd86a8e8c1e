#include "addresses.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <tuple>

namespace kelvanectl {
namespace {

constexpr unsigned highestOctet = 255;
constexpr const char* rangeExample = "e.g. 127.0.1.1-48";

// A decimal number of one to three digits, from 0 to 255, at the start of `text`, taken off it.
std::optional<unsigned> takeOctet(std::string_view& text) {
    unsigned value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    auto digits = static_cast<std::size_t>(end - text.data());
    if (error != std::errc() || digits > 3 || value > highestOctet) return std::nullopt;
    text.remove_prefix(digits);
    return value;
}

// The four octets of a whole dotted IPv4 address, "127.0.1.1".
std::optional<std::array<unsigned, 4>> ipv4Octets(std::string_view text) {
    std::array<unsigned, 4> octets{};
    for (std::size_t i = 0; i < octets.size(); ++i) {
        if (i > 0) {
            if (text.empty() || text.front() != '.') return std::nullopt;
            text.remove_prefix(1);
        }
        auto octet = takeOctet(text);
        if (!octet) return std::nullopt;
        octets[i] = *octet;
    }
    if (!text.empty()) return std::nullopt;
    return octets;
}

std::optional<std::uint32_t> ipv4Number(std::string_view text) {
    auto octets = ipv4Octets(text);
    if (!octets) return std::nullopt;
    std::uint32_t number = 0;
    for (unsigned octet : *octets) number = number << 8 | octet;
    return number;
}

// The addresses an --ip value names, or why it names none.
struct Named {
    std::vector<std::string> addresses;
    std::string problem;
};

Named namedByRange(const std::string& value) {
    auto dash = value.find('-');
    std::string_view start = std::string_view(value).substr(0, dash);
    std::string_view end = std::string_view(value).substr(dash + 1);
    auto octets = ipv4Octets(start);
    if (!octets) return {{}, std::string("a range starts with an IPv4 address, ") + rangeExample};
    std::string_view endText = end;
    auto last = takeOctet(endText);
    if (end.empty() || !endText.empty() || !last) {
        return {
            {},
            "a range ends with a last octet from its first to " + std::to_string(highestOctet) + ", " + rangeExample};
    }
    unsigned first = (*octets)[3];
    if (*last < first) {
        return {{}, "the range runs backwards, from ." + std::to_string(first) + " down to ." + std::to_string(*last)};
    }
    std::string network(start.substr(0, start.rfind('.') + 1));  // "127.0.1."
    Named named;
    for (unsigned octet = first; octet <= *last; ++octet) named.addresses.push_back(network + std::to_string(octet));
    return named;
}

Named namedBy(const std::string& value) {
    if (value.find('-') == std::string::npos) return {{value}, {}};
    return namedByRange(value);
}

}  // namespace

std::string addressProblem(const std::string& value) {
    std::string problem = namedBy(value).problem;
    return problem.empty() ? problem : value + ": " + problem;
}

std::vector<std::string> fixtureAddresses(const std::vector<std::string>& values) {
    std::vector<std::string> addresses;
    for (const auto& value : values) {
        auto named = namedBy(value).addresses;
        addresses.insert(addresses.end(), named.begin(), named.end());
    }
    auto order = [](const std::string& address) {
        auto number = ipv4Number(address);
        return std::tuple(!number, number.value_or(0), address);
    };
    std::sort(addresses.begin(), addresses.end(), [&](const auto& a, const auto& b) { return order(a) < order(b); });
    addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
    return addresses;
}

}  // namespace kelvanectl
