// Reads the position sensors through the C++ session; argv[1] is the controller's port.
#include <kelvane/FixtureControl.hpp>
#include <kelvane/version.h>

#include <iostream>
#include <string>

// No standard is set in this project: Kelvane::Kelvane must bring its own.
static_assert(__cplusplus >= 202002L);

int main(int argc, char** argv) {
    auto session = kelvane::FixtureControl::initWithIP(
        {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", argc > 1 ? std::stoi(argv[1]) : 0}}}});
    if (!session) return 2;
    std::cout << "libKelvane " << KELVANE_VERSION_STRING << " sensors " << session->checkPositionSensor() << "\n";
    session->close();
}
