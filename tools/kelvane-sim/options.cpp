#include "options.hpp"

#include "fixture_endpoints.hpp"

#include <kelvane/version.h>

#include <CLI/CLI.hpp>

#include <map>
#include <variant>

namespace kelvane::sim {

namespace {

// The most fixtures one simulator serves.
constexpr int mostFixtures = 64;
// The largest journal a fixture may be given, in MiB.
constexpr int largestJournalMb = 1024;

void addReplayOptions(CLI::App& app, Options& options) {
    auto* replay = app.add_option("--replay", options.replayFile,
                                  "Answer from a trace recorded with KELVANE_TRACE (see docs/trace.md)")
                       ->option_text("FILE");
    app.add_option_function<std::string>(
           "--replay-timing",
           [&options](const std::string& timing) { options.replayRecordedTiming = timing == "recorded"; },
           "fast: answer at once (default); recorded: wait each exchange's recorded duration")
        ->option_text("fast|recorded")
        ->check(CLI::IsMember({"fast", "recorded"}))
        ->needs(replay);
    app.add_flag("--replay-strict", options.replayStrict,
                 "Answer a request the trace has no exchange for with an error, not the model")
        ->needs(replay);
    app.add_flag("--replay-exit", options.replayExit, "Stop (and report) once every recorded exchange was asked for")
        ->needs(replay);
}

// "PORT" or "ADDRESS:PORT" (a port of 0 picks a free one), or the reason it is neither.
std::variant<HttpSettings, std::string> readHttpSettings(const std::string& text) {
    HttpSettings settings;
    auto colon = text.rfind(':');
    std::string port = text;
    if (colon != std::string::npos) {
        settings.address = text.substr(0, colon);
        port = text.substr(colon + 1);
        if (settings.address.empty()) return "--http: the address before ':' is missing";
    }
    bool digits = !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    if (!digits || std::stoi(port) > 65535) return "--http: expected PORT or ADDRESS:PORT, PORT 0 to 65535";
    settings.port = std::stoi(port);
    return settings;
}

// The combinations no single option can refuse by itself.
std::optional<std::string> placeFixtures(Options& options, const std::optional<std::string>& bind, int fixtures) {
    if (fixtures > 1 && !options.replayFile.empty()) return "--replay answers as one fixture; it takes no --fixtures";
    auto endpoints = fixtureEndpoints(bind, fixtures);
    if (auto* problem = std::get_if<std::string>(&endpoints)) return *problem;
    options.endpoints = std::move(std::get<std::vector<std::string>>(endpoints));
    return std::nullopt;
}

}  // namespace

std::optional<Options> parseOptions(int argc, char** argv, int& exitCode) {
    Options options;
    int travelMs = static_cast<int>(options.world.travel.count());
    int liftMs = static_cast<int>(options.world.lift.count());
    int journalMb = static_cast<int>(options.journalLimitBytes >> 20);
    std::string dut = "present";
    std::string bind;
    int fixtures = 1;

    CLI::App app{"kelvane-sim: a simulated fixture controller board, serving JSON-RPC over ZeroMQ.", "kelvane-sim"};
    auto* bindOption = app.add_option(
        "--bind", bind,
        "Endpoint to bind (the first fixture's); port * or 0 picks a free port (default tcp://127.0.0.1:7805, "
        "with several fixtures tcp://127.0.1.1:7805)");
    app.add_option("--fixtures", fixtures,
                   "Simulate N independent fixtures, fixture k at the address k-1 above the first (default 1)")
        ->check(CLI::Range(1, mostFixtures));
    app.add_option("--travel-ms", travelMs, "Tray travel time between OUT and IN, in ms (default 300)")
        ->check(CLI::Range(0, 86'400'000));
    app.add_option("--lift-ms", liftMs, "Tray travel time between UP and DOWN, in ms (default 200)")
        ->check(CLI::Range(0, 86'400'000));
    app.add_option("--dut", dut, "Whether a DUT sits in the fixture at start (default present)")
        ->check(CLI::IsMember({"present", "absent"}));
    app.add_option("--tec-slots", options.world.tecSlots, "TEC controllers on the CAN bus, slots 1..N (default 4)")
        ->check(CLI::Range(0, 16));
    app.add_option("--seed", options.world.seed, "Seed of the TEC sensors' noise; fixture k uses S+k-1 (default 1)");
    app.add_flag("--quiet", options.quiet, "Log nothing on stderr");
    app.add_option("--journal-mb", journalMb,
                   "Memory each fixture's journal of requests may hold, in MiB; the oldest entries go first "
                   "(0 to " +
                       std::to_string(largestJournalMb) + ", default " + std::to_string(journalMb) +
                       "; 0 keeps the newest only)")
        ->check(CLI::Range(0, largestJournalMb));
    app.set_version_flag("--version", "kelvane-sim (libKelvane) " KELVANE_VERSION_STRING);
    addReplayOptions(app, options);
    app.add_option_function<std::string>(
           "--http",
           [&options](const std::string& text) {
               auto settings = readHttpSettings(text);
               if (auto* problem = std::get_if<std::string>(&settings)) throw CLI::ValidationError(*problem);
               options.http = std::get<HttpSettings>(settings);
           },
           "Serve a live panel of the fixtures on 127.0.0.1:PORT, or ADDRESS:PORT; port 0 picks a free one")
        ->option_text("[ADDRESS:]PORT");

    try {
        app.parse(argc, argv);
        auto givenBind = bindOption->count() > 0 ? std::optional(bind) : std::nullopt;
        if (auto problem = placeFixtures(options, givenBind, fixtures)) throw CLI::ValidationError(*problem);
    } catch (const CLI::ParseError& error) {
        exitCode = app.exit(error) == 0 ? 0 : usageExitCode;
        return std::nullopt;
    }
    options.world.travel = std::chrono::milliseconds(travelMs);
    options.world.lift = std::chrono::milliseconds(liftMs);
    options.world.dutPresent = dut == "present";
    options.journalLimitBytes = static_cast<std::size_t>(journalMb) << 20;
    return options;
}

}  // namespace kelvane::sim
