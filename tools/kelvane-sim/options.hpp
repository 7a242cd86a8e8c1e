// The simulator's command line.
#pragma once

#include "models.hpp"

#include <kelvane/protocol/controller_port.hpp>

#include <optional>
#include <string>

namespace kelvane::sim {

struct Options {
    std::string bind = "tcp://127.0.0.1:" + std::to_string(controllerPort);
    WorldSettings world;
    bool quiet = false;
    // Answer from this trace file (docs/trace.md) rather than from the model.
    std::string replayFile;
    bool replayRecordedTiming = false;
    bool replayStrict = false;
    bool replayExit = false;  // stop once every recorded exchange was asked for
};

// The options, or nothing with `exitCode` set when the program should stop at once (after
// --help, or after a usage error that has been printed).
std::optional<Options> parseOptions(int argc, char** argv, int& exitCode);

}  // namespace kelvane::sim
