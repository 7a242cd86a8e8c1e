#include "fixture_desk.hpp"

#include "commands.hpp"
#include "report.hpp"

#include <kelvane/Kelvane.hpp>
#include <kelvane/Platform.hpp>

#include <atomic>

namespace kelvanectl {

using json = nlohmann::ordered_json;

// The device's log as events for the page: the library writes its lines here from the thread
// that calls it. Held by the device's session as well, so it keeps what it needs itself.
class DeskLog final : public kelvane::LogSink {
public:
    DeskLog(std::string fixture, FixtureDesk::Publish publish, std::shared_ptr<kelvane::LogSink> alsoTo)
        : fixture_(std::move(fixture)), publish_(std::move(publish)), alsoTo_(std::move(alsoTo)) {}

    void write(std::string_view line) override {
        publish_({{"type", "log"}, {"fixture", fixture_}, {"line", line}, {"poll", polling.load()}});
        if (alsoTo_) alsoTo_->write(line);
    }

    std::atomic<bool> polling{false};  // the lines come from a poll, not an operation

private:
    const std::string fixture_;
    const FixtureDesk::Publish publish_;
    const std::shared_ptr<kelvane::LogSink> alsoTo_;
};

namespace {

using Clock = std::chrono::steady_clock;

// The same limit a device made with a trace file but no size gets.
constexpr std::uint64_t traceLimitBytes = 64ull << 20;

std::optional<std::string> copied(const char* text) { return text ? std::optional<std::string>(text) : std::nullopt; }

json orNull(const std::optional<std::string>& text) { return text ? json(*text) : json(nullptr); }

json orNull(const std::string& text) { return text.empty() ? json(nullptr) : json(text); }

}  // namespace

FixtureDesk::FixtureDesk(std::string address, Settings settings, Publish publish)
    : address_(std::move(address)),
      settings_(std::move(settings)),
      publish_(std::move(publish)),
      log_(
          std::make_shared<DeskLog>(address_, publish_, settings_.processLog ? kelvane::defaultProcessLog() : nullptr)),
      thread_([this] { workToTheEnd(); }) {}

FixtureDesk::~FixtureDesk() {
    close();
    thread_.join();
}

std::optional<FixtureDesk::Refusal> FixtureDesk::submit(Operation operation, Answered answered) {
    {
        std::lock_guard lock(mutex_);
        if (closing_) return Refusal{Refusal::closed, "the console is closing"};
        if (operation.moves && !moving_.empty()) {
            return Refusal{Refusal::moveUnderWay,
                           address_ + " is moving its tray (" + moving_ + "): one move at a time; wait for it to end"};
        }
        if (waiting_.size() >= settings_.mostWaiting) {
            return Refusal{Refusal::tooMany, std::to_string(waiting_.size()) + " operations already wait for " +
                                                 address_ + "; try again once they ran"};
        }
        if (operation.moves) moving_ = operation.name;
        waiting_.push_back({std::move(operation), std::move(answered)});
    }
    wake_.notify_all();
    publishState();
    return std::nullopt;
}

void FixtureDesk::setPolling(bool on) {
    {
        std::lock_guard lock(mutex_);
        polling_ = on;
    }
    wake_.notify_all();
    publishState();
}

json FixtureDesk::state() const {
    std::lock_guard lock(mutex_);
    return stateLocked();
}

json FixtureDesk::stateLocked() const {
    return {{"fixture", address_},         {"connected", connected_ ? json(*connected_) : json(nullptr)},
            {"sensors", orNull(sensors_)}, {"dut", orNull(dut_)},
            {"polling", polling_},         {"busy", orNull(busy_)},
            {"moving", orNull(moving_)}};
}

void FixtureDesk::publishState() { publish_(stateEvent()); }

json FixtureDesk::stateEvent() const {
    json event = {{"type", "state"}};
    event.update(state());
    return event;
}

void FixtureDesk::close() {
    KelvaneHandle device = nullptr;
    {
        std::lock_guard lock(mutex_);
        closing_ = true;
        std::swap(device, device_);
    }
    wake_.notify_all();
    destroyKelvaneDev(device);  // returns at once; the call under way ends early
}

bool FixtureDesk::waitForEnd(Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    return wake_.wait_until(lock, deadline, [this] { return ended_; });
}

void FixtureDesk::connect() {
    kelvane::Platform platform = kelvane::Platform::defaults();
    platform.log = log_;
    if (!settings_.traceFile.empty()) platform.trace = kelvane::traceFile(settings_.traceFile, traceLimitBytes);
    auto made =
        std::make_shared<kelvane::Kelvane>(address_, static_cast<std::uint32_t>(settings_.port), std::move(platform));
    KelvaneHandle device = kelvane::handleOf(made);
    bool connected = getConnectFlag(device) == 1;
    {
        std::lock_guard lock(mutex_);
        if (!closing_) {
            std::swap(device, device_);
            connected_ = connected;
        }
    }
    destroyKelvaneDev(device);  // the one replaced, or the new one when closing
    publishState();
}

// What escapes the loop (memory running out) ends this fixture's thread, not the console.
void FixtureDesk::workToTheEnd() {
    try {
        work();
    } catch (...) {
    }
    std::lock_guard lock(mutex_);
    closing_ = true;
    ended_ = true;
    wake_.notify_all();
}

void FixtureDesk::work() {
    connect();
    std::unique_lock lock(mutex_);
    auto nextPoll = Clock::now();
    while (!closing_) {
        bool pollable = polling_ && connected_ == true;
        if (!waiting_.empty()) {
            Task task = std::move(waiting_.front());
            waiting_.pop_front();
            busy_ = task.operation.name;
            lock.unlock();
            publishState();
            Answer answer = run(task.operation);
            lock.lock();
            busy_.clear();
            if (task.operation.moves) moving_.clear();
            lock.unlock();
            remember(task.operation.name, answer.outcome);
            json event = {{"type", "result"},
                          {"fixture", address_},
                          {"op", task.operation.name},
                          {"command", task.operation.line}};
            event.update(answerJson(answer.outcome, answer.seconds));
            publish_(event);
            task.answered(answer);
            publishState();
            lock.lock();
            nextPoll = Clock::now();  // the page sees what the operation did
        } else if (pollable && Clock::now() >= nextPoll) {
            lock.unlock();
            poll();
            lock.lock();
            nextPoll = Clock::now() + settings_.pollPeriod;
        } else if (pollable) {
            wake_.wait_until(lock, nextPoll);
        } else {
            wake_.wait(lock);
        }
    }
    std::deque<Task> unrun = std::move(waiting_);
    lock.unlock();
    for (auto& task : unrun) task.answered({failed(nullptr, "not run: the console was closing"), 0});
}

FixtureDesk::Answer FixtureDesk::run(const Operation& operation) {
    auto started = Clock::now();
    auto seconds = [&] { return std::chrono::duration<double>(Clock::now() - started).count(); };
    KelvaneHandle device = nullptr;
    bool connected = false;
    {
        std::lock_guard lock(mutex_);
        device = device_;
        connected = connected_ == true;
    }
    // The one operation that tries again: a fixture switched on since the console started.
    if (!connected && operation.name == "connect") {
        connect();
        std::lock_guard lock(mutex_);
        device = device_;
        connected = connected_ == true;
    }
    if (!connected) return {unreachable(operation.name, address_, settings_.port), seconds()};
    Outcome outcome = operation.run(device);  // copies the library's text before the next call
    return {std::move(outcome), seconds()};
}

void FixtureDesk::poll() {
    KelvaneHandle device = nullptr;
    {
        std::lock_guard lock(mutex_);
        device = device_;
    }
    log_->polling = true;
    auto sensors = copied(checkPositionSensor(device));
    auto dut = copied(checkDUTSensor(device));
    log_->polling = false;
    bool changed = false;
    {
        std::lock_guard lock(mutex_);
        changed = sensors != sensors_ || dut != dut_;
        sensors_ = std::move(sensors);
        dut_ = std::move(dut);
    }
    if (changed) publishState();
}

// A sensor read the technician asked for shows in the drawing too, polling or not.
void FixtureDesk::remember(const std::string& operation, const Outcome& outcome) {
    if (!outcome.ok || !outcome.result.is_string()) return;
    std::lock_guard lock(mutex_);
    if (operation == "sensors") sensors_ = outcome.result.get<std::string>();
    if (operation == "dut") dut_ = outcome.result.get<std::string>();
}

}  // namespace kelvanectl
