#include "console_command.hpp"

#include "fixture_console.hpp"
#include "interruption.hpp"
#include "outcome.hpp"

#include <cstdlib>
#include <iostream>

namespace kelvanectl {
namespace {

// How long the end waits for the fixtures' threads once their devices are closed: a move stops
// at its next sensor read, half a second at most; a TEC reading cut off is not waited for.
constexpr std::chrono::milliseconds closingGrace{600};
constexpr std::chrono::hours interruptCheck{1};

}  // namespace

int serveConsole(const ConsoleRequest& request, std::FILE* messages) {
    auto place = kelvane::web::readServingPlace(request.http);
    if (auto* problem = std::get_if<std::string>(&place)) {
        std::fprintf(messages, "kelvanectl: console: %s\n", problem->c_str());
        return exitUsage;
    }
    ConsoleSettings settings{request.fixtures, {}, std::get<kelvane::web::ServingPlace>(place)};
    settings.desk.port = request.port;
    settings.desk.traceFile = request.traceFile;
    settings.desk.processLog = request.processLog;
    if (!settings.place.isLoopback()) {
        std::fprintf(messages,
                     "kelvanectl: warning: the console serves on %s:%d: anyone who reaches it and sees its token "
                     "(which travels unencrypted) can move the fixtures\n",
                     settings.place.address.c_str(), settings.place.port);
    }
    Interruption interruption;  // before the address is out: a Ctrl-C right after it counts
    FixtureConsole console(settings);
    std::cout << "console at " << console.url() << std::endl;
    while (interruption.waitFor(interruptCheck)) {
    }
    if (!console.close(closingGrace)) {
        // A thread still in a call its closed device cut short: ending the process ends it.
        std::fflush(nullptr);
        std::_Exit(exitOk);
    }
    return exitOk;
}

}  // namespace kelvanectl
