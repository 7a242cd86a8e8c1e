// `kelvanectl console`: serves the fixture console until Ctrl-C. A build without the browser
// pages (no Boost) has this command too, and says it cannot serve.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace kelvanectl {

struct ConsoleRequest {
    std::vector<std::string> fixtures;  // addresses, from --ip
    int port = 0;                       // the controllers', --port
    std::string traceFile;              // --trace
    bool processLog = false;            // --log
    std::string http;                   // --http: "PORT" or "ADDRESS:PORT"
};

// Prints "console at URL" on standard output, serves until SIGINT, closes the devices and
// returns the exit status: 0, or 64 for an --http that names no place. `messages`: warnings.
int serveConsole(const ConsoleRequest& request, std::FILE* messages);

}  // namespace kelvanectl
