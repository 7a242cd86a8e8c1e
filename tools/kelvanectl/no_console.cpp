// `kelvanectl console` in a build without the browser pages (KELVANE_BROWSER_PAGES off).
#include "fixture_console/console_command.hpp"

#include "outcome.hpp"

namespace kelvanectl {

int serveConsole(const ConsoleRequest&, std::FILE* messages) {
    std::fprintf(messages, "kelvanectl: console: this kelvanectl was built without the browser pages\n");
    return exitRefused;
}

}  // namespace kelvanectl
