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
    return fromText(text, [success](const char* reply) { return std::strcmp(reply, success) == 0; });
}

DeviceCommand move(std::string name, std::string description, const char* (*operation)(KelvaneHandle),
                   const char* success) {
    return {std::move(name), std::move(description), true,
            [operation, success](KelvaneHandle device) { return exactText(operation(device), success); }};
}

}  // namespace

std::vector<DeviceCommand> deviceCommands(const Arguments& arguments) {
    const Arguments* values = &arguments;
    return {
        {"connect", "Connect to the controller and report the connection flag (1 = answered)", false,
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
        {"lock",
         "Clamp (on) or release (off) the magnet lock",
         false,
         [values](KelvaneHandle device) { return textHoldingDone(fixtureLock(device, values->lockState.c_str())); },
         {{"state", "on or off", &Arguments::lockState, {"on", "off"}}}},
        {"fan set",
         "Set a fan's speed",
         false,
         [values](KelvaneHandle device) {
             int done = setFanSpeed(device, values->fan, values->fanSpeed);
             if (done == 1) return succeeded(done);
             return failed(done, "the fixture did not confirm the fan speed");
         },
         {{"fan", "Fan number", &Arguments::fan}, {"speed", "Speed", &Arguments::fanSpeed}}},
        {"fan get",
         "Read a fan's speed",
         false,
         [values](KelvaneHandle device) {
             const char* speed = getFanSpeed(device, values->fan);
             if (speed && std::strcmp(speed, printedNoReply) == 0) return failed(nullptr, noReply);
             return anyText(speed);
         },
         {{"fan", "Fan number", &Arguments::fan}}},
        {"io",
         "Set an IO line to a state",
         false,
         [values](KelvaneHandle device) { return textHoldingDone(setIO(device, values->ioLine, values->ioState)); },
         {{"line", "IO line", &Arguments::ioLine}, {"state", "State", &Arguments::ioState}}},
        // The library asks the controller about any slot; below 1 is a typing error, not worth
        // the five answer periods a controller takes to say nothing.
        {"tec",
         "Read a slot's TEC controller: four sensors, PWM, current, test step",
         false,
         [values](KelvaneHandle device) { return tecReading(tecTempRecord(device, values->tecSlot)); },
         {{"slot", "Slot number, from 1", &Arguments::tecSlot, {}, 1}}},
    };
}

Outcome unreachable(const std::string& command, const std::string& ip, int port) {
    return failed(command == "connect" ? Result(0) : Result(nullptr),
                  "cannot reach the fixture controller at " + ip + ":" + std::to_string(port) +
                      " (is it powered and on the network?)",
                  exitUnreachable);
}

}  // namespace kelvanectl
