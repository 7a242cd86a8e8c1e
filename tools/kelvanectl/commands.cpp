#include "commands.hpp"

#include "tec_reading.hpp"

#include <cstring>

namespace kelvanectl {
namespace {

constexpr const char* noReply = "the fixture controller gave no reply";
// getFanSpeed prints a missing reply rather than returning NULL.
constexpr const char* printedNoReply = "(null)";

bool contains(const char* text, const char* part) { return std::strstr(text, part) != nullptr; }

// A text result: acceptable when `accepts` says so; NULL is never acceptable.
template <typename Test>
Outcome fromText(const char* text, Test accepts) {
    if (!text) return failed(nullptr, noReply);
    if (!accepts(text)) return failed(text, std::string("the fixture refused: ") + text);
    return succeeded(text);
}

Outcome anyText(const char* text) {
    return fromText(text, [](const char*) { return true; });
}

Outcome textHoldingDone(const char* text) {
    return fromText(text, [](const char* reply) { return contains(reply, "done"); });
}

Outcome exactText(const char* text, const char* success) {
    return fromText(text,
                    [success](const char* reply) { return std::strcmp(reply, success) == 0; });
}

DeviceCommand move(std::string name, std::string description,
                   const char* (*operation)(KelvaneHandle), const char* success) {
    return {std::move(name), std::move(description), true,
            [operation, success](KelvaneHandle device) {
                return exactText(operation(device), success);
            }};
}

}  // namespace

std::vector<DeviceCommand> plainCommands() {
    return {
        {"connect", "Connect to the controller and report the connection flag (1 = answered)",
         false,
         [](KelvaneHandle device) {
             // Reached only once the device is connected; an unreachable controller is reported
             // before any command runs.
             return succeeded(getConnectFlag(device));
         }},
        {"init", "Initialise the fixture (the controller board's own initialisation)", false,
         [](KelvaneHandle device) {
             if (initialFixture(device)) return succeeded(true);
             return failed(false, "the fixture did not confirm initialisation");
         }},
        {"fixture-init", "Put the fixture's IO lines into their initial state", false,
         [](KelvaneHandle device) { return textHoldingDone(fixtureInit(device)); }},
        {"sensors", "Read the tray position sensors as IN;OUT;UP;DOWN", false,
         [](KelvaneHandle device) { return anyText(checkPositionSensor(device)); }},
        {"dut", "Read the DUT presence sensor", false,
         [](KelvaneHandle device) { return anyText(checkDUTSensor(device)); }},
        move("tray-up", "Raise the tray", trayUp, "UP OK"),
        move("tray-down", "Lower the tray (needs IN and a DUT)", trayDown, "DOWN OK"),
        move("tray-in", "Move the tray in (needs UP)", trayIn, "IN OK"),
        move("tray-out", "Move the tray out (needs not DOWN)", trayOut, "OUT OK"),
    };
}

DeviceCommand lockCommand(const Arguments& arguments) {
    return {"lock", "Clamp (on) or release (off) the magnet lock", false,
            [&arguments](KelvaneHandle device) {
                return textHoldingDone(fixtureLock(device, arguments.lockState.c_str()));
            }};
}

DeviceCommand fanSetCommand(const Arguments& arguments) {
    return {"set", "Set a fan's speed", false, [&arguments](KelvaneHandle device) {
                int done = setFanSpeed(device, arguments.fan, arguments.fanSpeed);
                if (done == 1) return succeeded(done);
                return failed(done, "the fixture did not confirm the fan speed");
            }};
}

DeviceCommand fanGetCommand(const Arguments& arguments) {
    return {"get", "Read a fan's speed", false, [&arguments](KelvaneHandle device) {
                const char* speed = getFanSpeed(device, arguments.fan);
                if (speed && std::strcmp(speed, printedNoReply) == 0)
                    return failed(nullptr, noReply);
                return anyText(speed);
            }};
}

DeviceCommand ioCommand(const Arguments& arguments) {
    return {"io", "Set an IO line to a state", false, [&arguments](KelvaneHandle device) {
                return textHoldingDone(setIO(device, arguments.ioLine, arguments.ioState));
            }};
}

DeviceCommand tecCommand(const Arguments& arguments) {
    return {"tec", "Read a slot's TEC controller: four sensors, PWM, current, test step", false,
            [&arguments](KelvaneHandle device) {
                return tecReading(tecTempRecord(device, arguments.tecSlot));
            }};
}

}  // namespace kelvanectl
