// What one simulated fixture answers, without a socket: a request message in, the reply message
// out (or none), to be sent at once or held back a while. It reads the request, answers the
// "sim." control calls itself, and journals, replays, scripts or asks the models for the rest.
// The FixtureServer puts it behind a socket; the simulator's tests call it directly.
#pragma once

#include "control_surface.hpp"
#include "journal.hpp"
#include "replay_book.hpp"
#include "scripts.hpp"
#include "simulated_fixture.hpp"

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane::sim {

// How a fixture answers from a recorded trace (kelvane-sim --replay).
struct ReplaySettings {
    ReplayBook book;
    bool recordedTiming = false;  // wait each exchange's recorded duration before answering
    bool strict = false;          // a request with no match is an error rather than a model answer
};

// A message as a log line shows it: cut short when long.
std::string shortenedForLog(std::string_view text);

class FixtureResponder {
public:
    // Takes one line of the fixture's log (one per request, and notes on scripted or replayed
    // answers). Unset: nothing is logged.
    using Log = std::function<void(const std::string& line)>;

    struct Reply {
        std::string message;
        std::chrono::milliseconds delay{0};  // send it this much later
    };

    // The journal holds at most `journalLimitBytes`.
    FixtureResponder(SimulatedFixture fixture, std::size_t journalLimitBytes, std::optional<ReplaySettings> replay = {},
                     Log log = {});

    FixtureResponder(const FixtureResponder&) = delete;
    FixtureResponder& operator=(const FixtureResponder&) = delete;

    // The reply to one request message; nothing for a message dropped unread, or for a request
    // that a script or the replay leaves unanswered.
    std::optional<Reply> answer(std::string_view message);

    // A "sim." control call, answered as if it had come over the wire.
    Outcome control(const jsonrpc::Request& request);
    const Journal& journal() const { return journal_; }
    // Null when the fixture does not replay.
    const ReplayBook* replayBook() const { return replay_ ? &replay_->book : nullptr; }

private:
    std::optional<Reply> controllerAnswer(const jsonrpc::Request& request);
    std::optional<Reply> replayed(std::int64_t id, const ReplayedAnswer& recorded);
    std::optional<Reply> scripted(const jsonrpc::Request& request, const Script& script);
    Outcome modelAnswer(const jsonrpc::Request& request);
    void log(const std::string& line) const;

    SimulatedFixture fixture_;
    std::optional<ReplaySettings> replay_;
    const Log log_;
    ScriptBook scripts_;
    Journal journal_;
    ControlSurface control_{fixture_, scripts_, journal_};
};

}  // namespace kelvane::sim
