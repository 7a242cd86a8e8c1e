// The commands that need a fixture: one per operation of the C interface, each with the test
// that tells success from refusal and the values it takes. The command line and the browser
// console both read their commands from this one table.
#pragma once

#include "outcome.hpp"

#include <kelvane/kelvane.h>

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kelvanectl {

// The values the command line (or the browser console) gives the commands that take arguments.
struct Arguments {
    std::string lockState;
    int fan = 0;
    int fanSpeed = 0;
    int ioLine = 0;
    int ioState = 0;
    int tecSlot = 0;
    double watchSeconds = 0;  // tec --watch
    int ledSlot = 0;          // the console's LED commands
    std::string ledMode;
};

// One value a command takes after its name ("lock on", "fan set 1 60"), kept in Arguments.
struct Parameter {
    std::string name;  // as the help shows it, e.g. "state"
    std::string help;
    std::variant<std::string Arguments::*, int Arguments::*> field;
    std::vector<std::string> words{};  // the only texts it takes; empty: any
    std::optional<int> lowest{};       // the least number it takes
};

struct DeviceCommand {
    std::string name;         // as typed: "tray-in", or with its group's name, "fan set"
    std::string description;  // one line of help
    bool moves = false;       // polls a sensor: worth a progress indication
    std::function<Outcome(KelvaneHandle)> run;
    std::vector<Parameter> parameters{};  // in the order they are typed
};

// Every command that needs a fixture, in the order the help lists them; a command that takes
// values reads them from `arguments` when it runs.
std::vector<DeviceCommand> deviceCommands(const Arguments& arguments);

// What a command gives when the controller at ip:port could not be reached (exit status 2).
Outcome unreachable(const std::string& command, const std::string& ip, int port);

}  // namespace kelvanectl
