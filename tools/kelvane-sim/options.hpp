// The simulator's command line.
#pragma once

#include "journal.hpp"
#include "models.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace kelvane::sim {

// Where the live panel serves (--http).
struct HttpSettings {
    std::string address = "127.0.0.1";
    int port = 0;  // 0: a free port
};

struct Options {
    // One per simulated fixture, in order (see fixtureEndpoints).
    std::vector<std::string> endpoints;
    // Fixture k's TEC noise is seeded with world.seed + k - 1, so fixtures do not read alike.
    WorldSettings world;
    bool quiet = false;
    std::size_t journalLimitBytes = Journal::defaultLimitBytes;  // per fixture
    // Answer from this trace file (docs/trace.md) rather than from the model.
    std::string replayFile;
    bool replayRecordedTiming = false;
    bool replayStrict = false;
    bool replayExit = false;           // stop once every recorded exchange was asked for
    std::optional<HttpSettings> http;  // absent: no panel, no HTTP thread
};

// Exit status after a usage error.
constexpr int usageExitCode = 64;

// The options, or nothing with `exitCode` set when the program should stop at once (0 after
// --help or --version, usageExitCode after a usage error that has been printed).
std::optional<Options> parseOptions(int argc, char** argv, int& exitCode);

}  // namespace kelvane::sim
