// The fixtures a command runs on, from the --ip values: an address, or a range of an IPv4
// address's last octet, "127.0.1.1-48" for 127.0.1.1 to 127.0.1.48.
#pragma once

#include <string>
#include <vector>

namespace kelvanectl {

// Why the --ip value names no fixture, in words for the engineer; empty when it names some.
// Only a value with a '-' is read here: any other is an address as given, which the library
// either reaches or reports unreachable.
std::string addressProblem(const std::string& value);

// The fixtures the values name (values with a problem name none), each once, in address order:
// IPv4 addresses by number, then any others as given.
std::vector<std::string> fixtureAddresses(const std::vector<std::string>& values);

}  // namespace kelvanectl
