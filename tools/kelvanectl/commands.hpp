// The commands that need a fixture: one per operation of the C interface, each with the test
// that tells success from refusal.
#pragma once

#include "outcome.hpp"

#include <kelvane/kelvane.h>

#include <functional>
#include <string>
#include <vector>

namespace kelvanectl {

// The values the command line gives the commands that take arguments.
struct Arguments {
    std::string lockState;
    int fan = 0;
    int fanSpeed = 0;
    int ioLine = 0;
    int ioState = 0;
    int tecSlot = 0;
    double watchSeconds = 0;  // tec --watch
};

struct DeviceCommand {
    std::string name;         // as typed, e.g. "tray-in"
    std::string description;  // one line of help
    bool moves = false;       // polls a sensor: worth a progress indication
    std::function<Outcome(KelvaneHandle)> run;
};

// The commands that take no arguments: "connect", "init", the sensors and the moves.
std::vector<DeviceCommand> plainCommands();

// The commands that read their arguments from `arguments` when they run.
DeviceCommand lockCommand(const Arguments& arguments);
DeviceCommand fanSetCommand(const Arguments& arguments);
DeviceCommand fanGetCommand(const Arguments& arguments);
DeviceCommand ioCommand(const Arguments& arguments);
DeviceCommand tecCommand(const Arguments& arguments);

}  // namespace kelvanectl
