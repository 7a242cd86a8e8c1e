// kelvane-sim: stands in for the fixture controller board. Prints one line,
// "listening on <endpoint>", once it is bound, and serves until SIGINT or SIGTERM.
#include "models.hpp"
#include "options.hpp"
#include "server.hpp"
#include "simulated_fixture.hpp"

#include <csignal>
#include <iostream>

namespace {

volatile std::sig_atomic_t stopSignalled = 0;

void requestStop(int) { stopSignalled = 1; }

void installSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace

int main(int argc, char** argv) {
    using namespace kelvane::sim;
    int exitCode = 0;
    auto options = parseOptions(argc, argv, exitCode);
    if (!options) return exitCode;
    installSignalHandlers();
    try {
        SimulatedFixture fixture(makeModels(options->world));
        Server server(fixture, options->quiet);
        std::string endpoint = server.bind(options->bind);
        std::cout << "listening on " << endpoint << std::endl;
        server.run([] { return stopSignalled != 0; });
    } catch (const std::exception& error) {
        std::cerr << "kelvane-sim: " << error.what() << " (" << options->bind << ")\n";
        return 1;
    }
    return 0;
}
