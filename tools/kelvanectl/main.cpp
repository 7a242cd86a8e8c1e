// kelvanectl: one fixture operation per command, for a station engineer at a fixture. It uses
// nothing but the library's C interface, the same one the test station uses.
#include "commands.hpp"
#include "console.hpp"
#include "interruption.hpp"
#include "outcome.hpp"
#include "progress.hpp"
#include "report.hpp"
#include "trace_reading.hpp"

#include <kelvane/kelvane.h>
#include <kelvane/version.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <optional>
#include <string>

namespace kelvanectl {
namespace {

constexpr const char* helpFooter =
    "LEDs have no C interface and cannot be driven from here.\n"
    "Exit status: 0 done (also a watch ended with Ctrl-C), 1 the fixture refused or gave no\n"
    "reply, 2 the controller cannot be reached, 64 usage error. The library's own step-by-step\n"
    "log is shown with --log; --trace FILE records every controller call of the command\n"
    "(see docs/trace.md), and \"kelvanectl trace FILE\" reads such a file.";

struct Settings {
    std::string ip = "127.0.0.1";
    int port = KELVANE_CONTROLLER_PORT;
    bool json = false;
    bool showLibraryLog = false;
    std::string traceFile;  // empty: the environment's KELVANE_TRACE, if any, stands
};

// Runs the chosen command, publishes what it gives, and returns the exit status.
using Action = std::function<int(const Settings&, Console&)>;

class Stopwatch {
public:
    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

Outcome unreachable(const std::string& label, const Settings& settings) {
    return failed(label == "connect" ? Result(0) : Result(nullptr),
                  "cannot reach the fixture controller at " + settings.ip + ":" +
                      std::to_string(settings.port) +
                      " (is it powered and on the network?)",
                  exitUnreachable);
}

// The command's device. The library's own log stays off unless asked for, and then goes where
// the process's log goes (standard error, or where KELVANE_LOG sends it).
KelvaneHandle connect(const Settings& settings) {
    KelvaneOptions options = KELVANE_OPTIONS_INIT;
    options.port = settings.port;
    if (!settings.traceFile.empty()) options.traceFile = settings.traceFile.c_str();
    if (!settings.showLibraryLog) options.log = "off";
    return createKelvaneDevWithOptions(settings.ip.c_str(), &options);
}

int runOnDevice(const DeviceCommand& command, const std::string& label, const Settings& settings,
                Console& console) {
    Stopwatch stopwatch;
    KelvaneHandle device = connect(settings);
    Outcome outcome;
    if (getConnectFlag(device) != 1) {
        outcome = unreachable(label, settings);
    } else {
        std::optional<Progress> progress;
        // The library's own log, when shown, shares the terminal line; the spinner stays out of its
        // way.
        bool watched = console.isTerminal() && !settings.showLibraryLog;
        if (command.moves && watched) progress.emplace(console.messages(), label);
        outcome = command.run(device);  // copies the library's text before the next call
    }
    destroyKelvaneDev(device);
    return publish({label, outcome, stopwatch.seconds(), command.moves}, settings.json,
                   console.messages());
}

// Runs the command every `period` (start to start) on one connection until Ctrl-C, publishing
// each round; a failed round is reported and the next one follows.
int repeatOnDevice(const DeviceCommand& command, const std::string& label,
                   std::chrono::duration<double> period, const Settings& settings,
                   Console& console) {
    Interruption interruption;
    Stopwatch connecting;
    KelvaneHandle device = connect(settings);
    if (getConnectFlag(device) != 1) {
        destroyKelvaneDev(device);
        return publish({label, unreachable(label, settings), connecting.seconds()}, settings.json,
                       console.messages());
    }
    std::chrono::duration<double> untilNext{};
    do {
        Stopwatch round;
        Outcome outcome = interruption.during([&] { return command.run(device); });
        publish({label, outcome, round.seconds()}, settings.json, console.messages());
        untilNext = period - std::chrono::duration<double>(round.seconds());
    } while (interruption.waitFor(untilNext));
    destroyKelvaneDev(device);
    return exitOk;
}

CLI::App* addDeviceCommand(CLI::App& parent, DeviceCommand command, std::string label,
                           Action& chosen) {
    CLI::App* sub = parent.add_subcommand(command.name, command.description);
    sub->callback([&chosen, command = std::move(command), label = std::move(label)] {
        chosen = [command, label](const Settings& settings, Console& console) {
            return runOnDevice(command, label, settings, console);
        };
    });
    return sub;
}

// A day at most: the period must stay a finite wait.
constexpr double longestWatchPeriod = 86400;

std::string watchPeriodCheck(const std::string& text) {
    try {
        double seconds = std::stod(text);
        if (seconds >= 0 && seconds <= longestWatchPeriod) return {};
    } catch (const std::exception&) {
    }
    return "SECONDS must be a number from 0 to 86400";
}

void addTecCommand(CLI::App& app, Arguments& arguments, Action& chosen) {
    DeviceCommand command = tecCommand(arguments);
    CLI::App* tec = app.add_subcommand(command.name, command.description);
    tec->add_option("slot", arguments.tecSlot, "Slot number, from 1")->required();
    CLI::Option* watch =
        tec->add_option("--watch", arguments.watchSeconds,
                        "Read again every SECONDS until Ctrl-C, one line per reading")
            ->option_text("SECONDS")
            ->check(watchPeriodCheck);
    tec->callback([&chosen, &arguments, watch, command = std::move(command)] {
        if (watch->count() == 0) {
            chosen = [command](const Settings& settings, Console& console) {
                return runOnDevice(command, "tec", settings, console);
            };
            return;
        }
        std::chrono::duration<double> period(arguments.watchSeconds);
        chosen = [command, period](const Settings& settings, Console& console) {
            return repeatOnDevice(command, "tec", period, settings, console);
        };
    });
}

Report decodeHex(const std::string& hex) {
    Stopwatch stopwatch;
    char* decoded = stringFromHexString(hex.c_str());
    Outcome outcome =
        decoded ? succeeded(std::string(decoded)) : failed(nullptr, "nothing to decode", exitUsage);
    std::free(decoded);
    return {"hex", outcome, stopwatch.seconds()};
}

Report checkFloat(const std::string& text) {
    Stopwatch stopwatch;
    bool pure = isPureFloat(text.c_str());
    return {"is-float", succeeded(pure), stopwatch.seconds()};
}

// Prints the trace's timeline, or its figures per method.
int readTraceFile(const std::string& path, bool stats) {
    std::ifstream file(path);
    if (!file) {
        std::cerr << "kelvanectl: cannot read " << path << "\n";
        return exitUsage;
    }
    Trace trace = readTrace(file);
    std::cout << (stats ? statistics(trace) : timeline(trace));
    return exitOk;
}

struct Inputs {
    Arguments arguments;
    std::string hexText;
    std::string floatText;
    std::string traceFile;
    bool traceStats = false;
};

void addCommands(CLI::App& app, Inputs& inputs, Action& chosen) {
    Arguments& arguments = inputs.arguments;
    for (auto& command : plainCommands()) {
        std::string label = command.name;
        addDeviceCommand(app, std::move(command), std::move(label), chosen);
    }
    addDeviceCommand(app, lockCommand(arguments), "lock", chosen)
        ->add_option("state", arguments.lockState, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));

    CLI::App* fan = app.add_subcommand(
        "fan", "Set (fan set <fan> <speed>) or read (fan get <fan>) a fan's speed");
    fan->require_subcommand(1);
    CLI::App* fanSet = addDeviceCommand(*fan, fanSetCommand(arguments), "fan set", chosen);
    fanSet->add_option("fan", arguments.fan, "Fan number")->required();
    fanSet->add_option("speed", arguments.fanSpeed, "Speed")->required();
    addDeviceCommand(*fan, fanGetCommand(arguments), "fan get", chosen)
        ->add_option("fan", arguments.fan, "Fan number")
        ->required();

    CLI::App* io = addDeviceCommand(app, ioCommand(arguments), "io", chosen);
    io->add_option("line", arguments.ioLine, "IO line")->required();
    io->add_option("state", arguments.ioState, "State")->required();

    addTecCommand(app, arguments, chosen);

    CLI::App* hex =
        app.add_subcommand("hex", "Decode a hex text, e.g. 414243 gives ABC (no fixture needed)");
    hex->add_option("hex-text", inputs.hexText, "Pairs of hex digits")->required();
    hex->callback([&] {
        chosen = [&](const Settings& settings, Console& console) {
            return publish(decodeHex(inputs.hexText), settings.json, console.messages());
        };
    });

    CLI::App* isFloat = app.add_subcommand(
        "is-float", "Tell whether a text is one floating-point number (no fixture needed)");
    isFloat->add_option("text", inputs.floatText, "The text to check")->required();
    isFloat->callback([&] {
        chosen = [&](const Settings& settings, Console& console) {
            return publish(checkFloat(inputs.floatText), settings.json, console.messages());
        };
    });

    CLI::App* trace = app.add_subcommand(
        "trace", "Show a trace file as a timeline, or --stats per method (no fixture needed)");
    trace->add_option("file", inputs.traceFile, "A file written with --trace or KELVANE_TRACE")
        ->required();
    trace->add_flag("--stats", inputs.traceStats,
                    "Calls, errors, timeouts and p50/p90/p99/max ms per method");
    trace->callback([&] {
        chosen = [&](const Settings&, Console&) {
            return readTraceFile(inputs.traceFile, inputs.traceStats);
        };
    });
}

int run(int argc, char** argv) {
    CLI::App app{"Drive a Kelvane test fixture, one operation per command.", "kelvanectl"};
    Settings settings;
    app.add_option("--ip", settings.ip, "Address of the fixture controller")->capture_default_str();
    app.add_option("--port", settings.port,
                   "The controller's TCP port (default " + std::to_string(KELVANE_CONTROLLER_PORT) + ")")
        ->option_text("PORT")
        ->check(CLI::Range(1, 65535));
    app.add_flag("--json", settings.json, "Print one JSON object per command, for scripts");
    app.add_flag("--log", settings.showLibraryLog,
                 "Show the library's step-by-step log (standard error, or where KELVANE_LOG sends it)");
    app.set_version_flag("--version", "kelvanectl (libKelvane) " KELVANE_VERSION_STRING);
    app.add_option("--trace", settings.traceFile,
                   "Append one line per controller call to FILE (as KELVANE_TRACE does for a station)")
        ->option_text("FILE");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(helpFooter);

    Inputs inputs;
    Action chosen;
    addCommands(app, inputs, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        int status = app.exit(error);
        return status == 0 ? exitOk : exitUsage;
    }
    Console console;
    return chosen(settings, console);
}

}  // namespace
}  // namespace kelvanectl

int main(int argc, char** argv) { return kelvanectl::run(argc, argv); }
