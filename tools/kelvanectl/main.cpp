// kelvanectl: one fixture operation per command, for a station engineer at a fixture. It uses
// nothing but the library's C interface, the same one the test station uses.
#include "addresses.hpp"
#include "commands.hpp"
#include "console.hpp"
#include "fixture_console/console_command.hpp"
#include "interruption.hpp"
#include "outcome.hpp"
#include "progress.hpp"
#include "report.hpp"
#include "station.hpp"
#include "trace_reading.hpp"

#include <bounded_lines.hpp>
#include <guarded_main.hpp>
#include <kelvane/kelvane.h>
#include <kelvane/version.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kelvanectl {
namespace {

constexpr const char* helpFooter =
    "LEDs have no C interface: only the console drives them.\n"
    "Exit status: 0 done (also a watch ended with Ctrl-C), 1 the fixture refused or gave no\n"
    "reply (or a trace file could not be read to its end, or anything unforeseen failed), 2 the\n"
    "controller cannot be reached, 64 usage error. Several --ip, or a range such as\n"
    "--ip 127.0.1.1-48, run a fixture command on every fixture at once: one line each, in address\n"
    "order, and the worst exit status of all (2, else 1, else 0). The library's own step-by-step\n"
    "log is shown with --log; --trace FILE records every controller call of the command\n"
    "(see docs/trace.md), and \"kelvanectl trace FILE\" reads such a file.";

constexpr const char* consoleFooter =
    "Prints one line, \"console at http://127.0.0.1:PORT/#token=TOKEN\": open that whole address.\n"
    "Every operation goes through the library, one device per --ip; the page's API takes only\n"
    "requests with that run's token. Another ADDRESS than 127.0.0.1 lets anyone who reaches it\n"
    "and learns the token move the fixtures. Ctrl-C closes the devices and ends it (exit 0).\n"
    "See docs/kelvanectl.md for the page and its API.";

struct Settings {
    std::vector<std::string> ips = {"127.0.0.1"};  // as given: addresses and ranges
    std::vector<std::string> fixtures;             // every address they name, in order
    int port = KELVANE_CONTROLLER_PORT;
    bool json = false;
    bool showLibraryLog = false;
    std::string traceFile;  // empty: the environment's KELVANE_TRACE, if any, stands
};

// Runs the chosen command, publishes what it gives, and returns the exit status.
using Action = std::function<int(const Settings&, Console&)>;

class Stopwatch {
public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// The command's device. The library's own log stays off unless asked for, and then goes where
// the process's log goes (standard error, or where KELVANE_LOG sends it).
// With several fixtures, every handle appends to the one trace file, each line naming its
// controller's endpoint.
KelvaneHandle connect(const Settings& settings, const std::string& ip) {
    KelvaneOptions options = KELVANE_OPTIONS_INIT;
    options.port = settings.port;
    if (!settings.traceFile.empty()) options.traceFile = settings.traceFile.c_str();
    if (!settings.showLibraryLog) options.log = "off";
    return createKelvaneDevWithOptions(ip.c_str(), &options);
}

// Whether a person watches a tray move on the terminal. The library's own log, when shown,
// shares the terminal line; the spinner stays out of its way.
bool showsProgress(const DeviceCommand& command, const Settings& settings, const Console& console) {
    return command.moves && console.isTerminal() && !settings.showLibraryLog;
}

// One fixture's part of a command: connect, run, disconnect. `progress` is the terminal that
// shows the move's progress once connected; null when none does.
Report onFixture(const DeviceCommand& command, const std::string& label, const Settings& settings,
                 const std::string& ip, std::FILE* progress) {
    Stopwatch stopwatch;
    KelvaneHandle device = connect(settings, ip);
    Outcome outcome;
    if (getConnectFlag(device) != 1) {
        outcome = unreachable(label, ip, settings.port);
    } else {
        std::optional<Progress> shown;
        if (progress) shown.emplace(progress, label);
        outcome = command.run(device);  // copies the library's text before the next call
    }
    destroyKelvaneDev(device);
    return {label, outcome, stopwatch.seconds(), command.moves};
}

int runOnDevice(const DeviceCommand& command, const std::string& label, const Settings& settings, Console& console) {
    std::FILE* terminal = showsProgress(command, settings, console) ? console.messages() : nullptr;
    if (settings.fixtures.size() == 1) {
        return publish(onFixture(command, label, settings, settings.fixtures.front(), terminal), settings.json,
                       console.messages());
    }
    // One progress line for the whole station, from the first connection to the last reply.
    std::optional<Progress> shown;
    if (terminal) shown.emplace(terminal, label + " on " + std::to_string(settings.fixtures.size()) + " fixtures");
    std::vector<Report> reports = onEveryFixture(
        settings.fixtures, [&](const std::string& ip) { return onFixture(command, label, settings, ip, nullptr); });
    shown.reset();
    return publishAll(reports, settings.json, console.messages());
}

// A command with a single output (a watch, or one that needs no fixture) given several fixtures:
// a usage error rather than a guess at which fixture was meant.
bool refusedForStation(const std::string& command, const std::string& reason, const Settings& settings,
                       Console& console) {
    if (settings.fixtures.size() <= 1) return false;
    std::fprintf(console.messages(), "kelvanectl: %s %s: give one --ip\n", command.c_str(), reason.c_str());
    return true;
}

// Runs the command every `period` (start to start) on one connection until Ctrl-C, publishing
// each round; a failed round is reported and the next one follows.
int repeatOnDevice(const DeviceCommand& command, const std::string& label, std::chrono::duration<double> period,
                   const Settings& settings, Console& console) {
    if (refusedForStation("tec --watch", "follows one fixture", settings, console)) return exitUsage;
    Interruption interruption;
    Stopwatch connecting;
    const std::string& ip = settings.fixtures.front();
    KelvaneHandle device = connect(settings, ip);
    if (getConnectFlag(device) != 1) {
        destroyKelvaneDev(device);
        return publish({label, unreachable(label, ip, settings.port), connecting.seconds()}, settings.json,
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

// The commands whose names are two words, under the first: "fan set", "fan get".
const std::map<std::string, std::string> groupHelp = {
    {"fan", "Set (fan set <fan> <speed>) or read (fan get <fan>) a fan's speed"}};

// The command's subcommand, under its group's when it has one; `groups` holds those made so far
// (a group is made with its first command).
CLI::App* addDeviceCommand(CLI::App& app, const DeviceCommand& command, std::map<std::string, CLI::App*>& groups) {
    auto space = command.name.find(' ');
    if (space == std::string::npos) return app.add_subcommand(command.name, command.description);
    std::string groupName = command.name.substr(0, space);
    CLI::App*& group = groups[groupName];
    if (!group) {
        group = app.add_subcommand(groupName, groupHelp.at(groupName));
        group->require_subcommand(1);
    }
    return group->add_subcommand(command.name.substr(space + 1), command.description);
}

void addParameters(CLI::App& sub, const DeviceCommand& command, Arguments& arguments) {
    for (const auto& parameter : command.parameters) {
        CLI::Option* option =
            std::visit([&](auto field) { return sub.add_option(parameter.name, arguments.*field, parameter.help); },
                       parameter.field);
        option->required();
        if (!parameter.words.empty()) option->check(CLI::IsMember(parameter.words));
        if (parameter.lowest) option->check(CLI::Range(*parameter.lowest, std::numeric_limits<int>::max()));
    }
}

void runOnceChosen(CLI::App& sub, DeviceCommand command, Action& chosen) {
    sub.callback([&chosen, command = std::move(command)] {
        chosen = [command](const Settings& settings, Console& console) {
            return runOnDevice(command, command.name, settings, console);
        };
    });
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

// tec, which may also be watched: read again and again until Ctrl-C.
void addTecWatch(CLI::App& tec, DeviceCommand command, Arguments& arguments, Action& chosen) {
    CLI::Option* watch =
        tec.add_option("--watch", arguments.watchSeconds, "Read again every SECONDS until Ctrl-C, one line per reading")
            ->option_text("SECONDS")
            ->check(watchPeriodCheck);
    tec.callback([&chosen, &arguments, watch, command = std::move(command)] {
        if (watch->count() == 0) {
            chosen = [command](const Settings& settings, Console& console) {
                return runOnDevice(command, command.name, settings, console);
            };
            return;
        }
        std::chrono::duration<double> period(arguments.watchSeconds);
        chosen = [command, period](const Settings& settings, Console& console) {
            return repeatOnDevice(command, command.name, period, settings, console);
        };
    });
}

Report decodeHex(const std::string& hex) {
    Stopwatch stopwatch;
    char* decoded = stringFromHexString(hex.c_str());
    Outcome outcome = decoded ? succeeded(std::string(decoded)) : failed(nullptr, "nothing to decode", exitUsage);
    std::free(decoded);
    return {"hex", outcome, stopwatch.seconds()};
}

Report checkFloat(const std::string& text) {
    Stopwatch stopwatch;
    bool pure = isPureFloat(text.c_str());
    return {"is-float", succeeded(pure), stopwatch.seconds()};
}

// Prints the trace's timeline as it is read, or its figures per method at the end. A line
// longer than the bound is reported and skipped; a read error ends it with status 1.
int readTraceFile(const std::string& path, bool stats) {
    kelvane::tools::BoundedLines lines(path);
    if (!lines.isOpen()) {
        std::cerr << "kelvanectl: cannot read " << path << ": " << lines.problem() << "\n";
        return exitUsage;
    }
    MethodStatistics statistics;
    auto reading = readTrace(
        lines,
        [&](const TracedCall& call) {
            if (stats)
                statistics.add(call);
            else
                std::cout << timelineLine(call);
        },
        [&](std::size_t lineNumber) {
            std::cerr << "kelvanectl: " << path << ":" << lineNumber << ": longer than "
                      << (kelvane::tools::longestTraceLine >> 20) << " MiB, skipped\n";
        });
    if (stats) std::cout << statistics.table();
    std::cout << notTraceLinesNote(reading) << std::flush;
    if (!reading.readToTheEnd) {
        std::cerr << "kelvanectl: reading " << path << " failed after line " << lines.number() << ": "
                  << lines.problem() << "\n";
        return kelvane::tools::exitFailed;
    }
    return exitOk;
}

constexpr const char* needsNoFixture = "needs no fixture";

struct Inputs {
    Arguments arguments;
    std::string consoleHttp = "0";
    std::string hexText;
    std::string floatText;
    std::string traceFile;
    bool traceStats = false;
};

void addCommands(CLI::App& app, Inputs& inputs, Action& chosen) {
    Arguments& arguments = inputs.arguments;
    std::map<std::string, CLI::App*> groups;
    for (auto& command : deviceCommands(arguments)) {
        CLI::App* sub = addDeviceCommand(app, command, groups);
        addParameters(*sub, command, arguments);
        if (command.name == "tec") {
            addTecWatch(*sub, std::move(command), arguments, chosen);
        } else {
            runOnceChosen(*sub, std::move(command), chosen);
        }
    }

    CLI::App* console =
        app.add_subcommand("console", "Serve a page that drives and watches the fixtures in a browser, until Ctrl-C");
    console->footer(consoleFooter);
    console
        ->add_option("--http", inputs.consoleHttp,
                     "Serve on 127.0.0.1:PORT (default 0: a free port), or on ADDRESS:PORT")
        ->option_text("[ADDRESS:]PORT");
    console->callback([&] {
        chosen = [&](const Settings& settings, Console& messages) {
            return serveConsole(
                {settings.fixtures, settings.port, settings.traceFile, settings.showLibraryLog, inputs.consoleHttp},
                messages.messages());
        };
    });

    CLI::App* hex = app.add_subcommand("hex", "Decode a hex text, e.g. 414243 gives ABC (no fixture needed)");
    hex->add_option("hex-text", inputs.hexText, "Pairs of hex digits")->required();
    hex->callback([&] {
        chosen = [&](const Settings& settings, Console& console) {
            if (refusedForStation("hex", needsNoFixture, settings, console)) return int(exitUsage);
            return publish(decodeHex(inputs.hexText), settings.json, console.messages());
        };
    });

    CLI::App* isFloat =
        app.add_subcommand("is-float", "Tell whether a text is one floating-point number (no fixture needed)");
    isFloat->add_option("text", inputs.floatText, "The text to check")->required();
    isFloat->callback([&] {
        chosen = [&](const Settings& settings, Console& console) {
            if (refusedForStation("is-float", needsNoFixture, settings, console)) return int(exitUsage);
            return publish(checkFloat(inputs.floatText), settings.json, console.messages());
        };
    });

    CLI::App* trace =
        app.add_subcommand("trace", "Show a trace file as a timeline, or --stats per method (no fixture needed)");
    trace->add_option("file", inputs.traceFile, "A file written with --trace or KELVANE_TRACE")->required();
    trace->add_flag("--stats", inputs.traceStats, "Calls, errors, timeouts and p50/p90/p99/max ms per method");
    trace->callback([&] {
        chosen = [&](const Settings& settings, Console& console) {
            if (refusedForStation("trace", needsNoFixture, settings, console)) return int(exitUsage);
            return readTraceFile(inputs.traceFile, inputs.traceStats);
        };
    });
}

int run(int argc, char** argv) {
    CLI::App app{"Drive a Kelvane test fixture, one operation per command.", "kelvanectl"};
    Settings settings;
    app.add_option("--ip", settings.ips,
                   "Address of the fixture controller (default 127.0.0.1); given again, or as a "
                   "range of the last octet such as 127.0.1.1-48, for several fixtures at once")
        ->option_text("ADDRESS")
        ->expected(1)
        ->allow_extra_args(false)  // one value each time: a word after it is the command
        ->take_all()
        ->check(addressProblem);
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
        // A word left over before any command names none: that explains the error best.
        const std::vector<std::string> leftOver = app.remaining();
        if (error.get_exit_code() != 0 && app.get_subcommands().empty() && !leftOver.empty()) {
            app.exit(CLI::ExtrasError("unknown command " + leftOver.front(), CLI::ExitCodes::ExtrasError));
            return exitUsage;
        }
        int status = app.exit(error);
        return status == 0 ? exitOk : exitUsage;
    }
    settings.fixtures = fixtureAddresses(settings.ips);
    Console console;
    return chosen(settings, console);
}

}  // namespace
}  // namespace kelvanectl

int main(int argc, char** argv) {
    try {
        return kelvanectl::run(argc, argv);
    } catch (...) {
        return kelvane::tools::reportFailure("kelvanectl");
    }
}
