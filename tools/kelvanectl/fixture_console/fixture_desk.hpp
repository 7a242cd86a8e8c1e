// One fixture in the browser console. Its device is made as a station's is and driven through
// the same C functions, on a thread of its own that runs the fixture's operations one after
// another, so a slow or silent fixture holds up only itself. A move is taken only while no other
// move of the fixture runs or waits. Between operations the thread reads the position sensors
// and the DUT sensor every poll period, unless polling is paused. The device's log, each line
// marked when a poll wrote it, goes where `publish` sends events.
#pragma once

#include "operations.hpp"

#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace kelvanectl {

class DeskLog;

class FixtureDesk {
public:
    struct Settings {
        int port = KELVANE_CONTROLLER_PORT;
        std::string traceFile;    // empty: KELVANE_TRACE decides, as for any device
        bool processLog = false;  // the device's log also where the process's goes (--log)
        std::chrono::milliseconds pollPeriod{1000};
        std::size_t mostWaiting = 8;  // operations waiting for the fixture; more are refused
    };
    // Called from any thread with each event: {"type": "state" | "result" | "log", ...}.
    using Publish = std::function<void(const nlohmann::ordered_json& event)>;
    struct Answer {
        Outcome outcome;
        double seconds = 0;  // the operation's own time, its wait for the fixture not counted
    };
    using Answered = std::function<void(const Answer&)>;
    struct Refusal {
        enum Kind { moveUnderWay, tooMany, closed } kind;
        std::string reason;
    };

    // Starts the thread, which connects first; returns at once.
    FixtureDesk(std::string address, Settings settings, Publish publish);
    // close(), then waits for the thread.
    ~FixtureDesk();
    FixtureDesk(const FixtureDesk&) = delete;
    FixtureDesk& operator=(const FixtureDesk&) = delete;

    const std::string& address() const { return address_; }

    // Queues the operation; `answered` is called on the fixture's thread once it ran. Refused
    // for a move while another runs or waits, when too many wait, and once closed.
    std::optional<Refusal> submit(Operation operation, Answered answered);
    void setPolling(bool on);
    // {"fixture", "connected" (null while connecting), "sensors" ("IN;OUT;UP;DOWN"), "dut",
    // "polling", "busy" (the operation running), "moving" (the move running or waiting)}.
    nlohmann::ordered_json state() const;
    // The same as an event: {"type": "state", ...}.
    nlohmann::ordered_json stateEvent() const;

    // Ends the device's use from any thread: the call under way ends early (a move at its next
    // sensor read), operations still waiting are answered as not run, and the thread ends.
    void close();
    // Waits until the thread has ended or `deadline` has passed; whether it has ended.
    bool waitForEnd(std::chrono::steady_clock::time_point deadline);

private:
    struct Task {
        Operation operation;
        Answered answered;
    };

    void workToTheEnd();
    void work();
    void connect();
    Answer run(const Operation& operation);
    void poll();
    void remember(const std::string& operation, const Outcome& outcome);
    void publishState();
    nlohmann::ordered_json stateLocked() const;

    const std::string address_;
    const Settings settings_;
    const Publish publish_;
    const std::shared_ptr<DeskLog> log_;

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    // Guarded by mutex_:
    KelvaneHandle device_ = nullptr;
    std::optional<bool> connected_;
    std::optional<std::string> sensors_;
    std::optional<std::string> dut_;
    bool polling_ = true;
    std::string busy_;
    std::string moving_;
    std::deque<Task> waiting_;
    bool closing_ = false;
    bool ended_ = false;

    std::thread thread_;  // last: starts once the rest is set
};

}  // namespace kelvanectl
