// What TEC monitoring costs its host, against an in-process controller that answers every TEC
// command at once (so the figures are the library's own, not a controller's round trips):
// - FourWorkersResidentMemory: resident memory of the process while four slots' workers run
//   passes back to back in virtual time (their sleeps return at once); it must stay flat.
// - SamplingPass: one measurement pass on the calling thread, sleeps excluded: five commands cut
//   into frames and answered, the answers reassembled and parsed, the CSV line formatted and
//   written, the monitor log lines written.
// - CloseWhileFourWorkersRest / CloseWhileFourWorkersRun: how long close() takes, in real time,
//   with four slots' workers all resting between passes, or at any moment of their run.
// All write the slots' real files below a temporary root.
#include "process_resources.hpp"
#include "temporary_directory.hpp"

#include <kelvane/FixtureControl.hpp>
#include <kelvane/protocol/can_bus.hpp>
#include <kelvane/protocol/tec_commands.hpp>

#include <benchmark/benchmark.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

namespace {

using kelvane::Value;
using Frame = std::vector<int>;

constexpr int slots = 4;
constexpr long long passesPerWorker = 10'000;
constexpr long long warmUpPassesPerWorker = 1'000;
using kelvane::can::consecutiveFramePayload;
using kelvane::can::firstConsecutiveMark;
using kelvane::can::firstFrameMark;
using kelvane::can::firstFramePayload;
using kelvane::can::textTerminator;

// Answers in the form the controllers use: the text and a closing 3, in one single frame or a
// first frame and consecutive frames.
std::vector<Frame> answerFrames(const std::string& text) {
    Frame payload(text.begin(), text.end());
    payload.push_back(textTerminator);
    if (payload.size() <= kelvane::can::longestSinglePayload) {
        Frame single{static_cast<int>(payload.size())};
        single.insert(single.end(), payload.begin(), payload.end());
        return {single};
    }
    Frame first{firstFrameMark, static_cast<int>(payload.size())};
    first.insert(first.end(), payload.begin(), payload.begin() + firstFramePayload);
    std::vector<Frame> frames{first};
    for (std::size_t at = firstFramePayload; at < payload.size(); at += consecutiveFramePayload) {
        Frame next{firstConsecutiveMark};
        auto end =
            payload.begin() + static_cast<std::ptrdiff_t>(std::min(at + consecutiveFramePayload, payload.size()));
        next.insert(next.end(), payload.begin() + static_cast<std::ptrdiff_t>(at), end);
        frames.push_back(std::move(next));
    }
    return frames;
}

// A controller board with one TEC controller per slot: it reassembles a command from the frames
// sent to a message id and puts the answer's frames on the bus, which "can.recv" hands out.
// Keeps nothing beyond the frames not yet collected, so it does not grow over a long run.
class TecControllerBoard final : public kelvane::RpcClient {
public:
    Value call(const std::string& method, const Value& args, const Value&, kelvane::RpcErrorSlot) override {
        std::lock_guard lock(mutex_);
        if (closed_) return nullptr;  // as a closed client: every call fails at once
        if (method == "can.send") return take(kelvane::integerValue(args[0]), args[1].get<Frame>());
        if (method == "can.recv") return next();
        if (method == "server.mode") return "normal";
        if (method == "can.open") return "done";
        return nullptr;
    }

    void close() override {
        std::lock_guard lock(mutex_);
        closed_ = true;
    }
    // Measurement passes answered so far (one "get tec power" each).
    long long passes() const { return passes_; }

private:
    Value take(long long messageId, const Frame& frame) {
        std::string& command = commands_[messageId];
        const bool starts = frame[0] != firstConsecutiveMark && frame[0] != kelvane::can::lastConsecutiveMark;
        if (starts) command.clear();
        command.append(frame.begin() + (frame[0] == firstFrameMark ? 2 : 1), frame.end());
        if (command.back() == textTerminator) answer(command.substr(0, command.size() - 1));
        return "done";
    }
    void answer(const std::string& command) {
        char text[128];
        if (command == kelvane::tec::powerCommand) {
            ++passes_;
            std::snprintf(text, sizeof text, kelvane::tec::powerAnswerFormat, 12.0, 1.0 + (passes_ % 50) / 100.0, 15.0,
                          -35.2);
        } else {
            std::snprintf(text, sizeof text, kelvane::tec::temperatureAnswerFormat, 25.0 + (passes_ % 30) / 100.0);
        }
        queue(text);
    }
    void queue(const std::string& text) {
        for (auto& frame : answerFrames(text)) bus_.push_back(std::move(frame));
    }
    Value next() {
        if (bus_.empty()) return Value::object();
        Value reply = {{"data", bus_.front()}};
        bus_.pop_front();
        return reply;
    }

    std::mutex mutex_;
    std::map<long long, std::string> commands_;
    std::deque<Frame> bus_;
    std::atomic<long long> passes_{0};
    bool closed_ = false;
};

// Virtual time: every sleep returns at once and moves the clock.
class InstantClock final : public kelvane::Clock {
public:
    double now() override { return 1'700'000'000.0 + elapsed_; }
    double monotonic() override { return elapsed_; }
    void sleepFor(double seconds) override {
        for (double t = elapsed_; !elapsed_.compare_exchange_weak(t, t + seconds);) {
        }
    }

private:
    std::atomic<double> elapsed_{0};
};

// Real time for the workers' rests between passes; the pauses inside a pass (0.1 s after each
// CAN receive) return at once, so four workers' passes take no time and all four rest together.
class RestingClock final : public kelvane::Clock {
public:
    double now() override { return system_->now(); }
    double monotonic() override { return system_->monotonic(); }
    void sleepFor(double) override {}
    void sleepUnlessCancelled(double seconds, const kelvane::CancelSignal& cancel) override {
        ++rests_;
        system_->sleepUnlessCancelled(seconds, cancel);
    }
    int rests() const { return rests_; }

private:
    std::shared_ptr<kelvane::Clock> system_ = kelvane::systemClock();
    std::atomic<int> rests_{0};
};

class NoLog final : public kelvane::LogSink {
public:
    void write(std::string_view) override {}
};

struct Station {
    std::shared_ptr<TecControllerBoard> board = std::make_shared<TecControllerBoard>();
    kelvane::testing::TemporaryDirectory root;
    std::shared_ptr<kelvane::FixtureControl> session;

    explicit Station(std::shared_ptr<kelvane::Clock> clock = std::make_shared<InstantClock>()) {
        kelvane::Platform platform;
        platform.clock = std::move(clock);
        platform.log = std::make_shared<NoLog>();
        platform.fileRoot = root.path();
        platform.connect = [board = board](const std::string&, std::uint32_t) { return board; };
        for (int slot = 1; slot <= slots; ++slot) {
            std::filesystem::create_directories(
                root.path() / fmt::format("Users/stnuser/Library/Logs/Korva/active/group0-slot{}/user", slot));
        }
        session = kelvane::FixtureControl::initWithIP(
            {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", 7805}}}, {"identifier", "Fixture1"}}, platform);
        if (session && !session->setUpTecMonitoring(slots)) session.reset();
    }
    ~Station() {
        if (session) session->close();
    }
};

double mebibytes(std::size_t bytes) { return static_cast<double>(bytes) / (1024.0 * 1024.0); }

void waitForPasses(const TecControllerBoard& board, long long passes) {
    while (board.passes() < passes) std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

void FourWorkersResidentMemory(benchmark::State& state) {
    if (!kelvane::testing::residentBytes()) return state.SkipWithError("no /proc here");
    for (auto _ : state) {
        Station station;
        if (!station.session) return state.SkipWithError("no session");
        for (int slot = 1; slot <= slots; ++slot) station.session->tecTempGet(slot, "ON");
        waitForPasses(*station.board, slots * warmUpPassesPerWorker);
        const std::size_t afterWarmUp = *kelvane::testing::residentBytes();
        std::size_t highest = afterWarmUp;
        while (station.board->passes() < slots * passesPerWorker) {
            waitForPasses(*station.board, station.board->passes() + 1'000);
            highest = std::max(highest, *kelvane::testing::residentBytes());
        }
        const std::size_t atEnd = *kelvane::testing::residentBytes();
        for (int slot = 1; slot <= slots; ++slot) station.session->tecTempGet(slot, "OFF");
        state.counters["passes"] = static_cast<double>(station.board->passes());
        state.counters["rss_after_warmup_MiB"] = mebibytes(afterWarmUp);
        state.counters["rss_end_MiB"] = mebibytes(atEnd);
        state.counters["rss_highest_MiB"] = mebibytes(highest);
        state.counters["rss_growth_KiB"] = (static_cast<double>(atEnd) - static_cast<double>(afterWarmUp)) / 1024;
    }
}

void SamplingPass(benchmark::State& state) {
    Station station;
    if (!station.session) return state.SkipWithError("no session");
    const Value messageId = 2080;
    for (auto _ : state) station.session->tecTempRecord(1, messageId);
    state.SetItemsProcessed(state.iterations());
}

using Seconds = std::chrono::duration<double>;

// Switches four slots on, lets them run until `settled` says so, and times close().
template <class Settled>
void timeClose(benchmark::State& state, const std::shared_ptr<kelvane::Clock>& clock, Settled settled) {
    Station station(clock);
    if (!station.session) return state.SkipWithError("no session");
    for (int slot = 1; slot <= slots; ++slot) station.session->tecTempGet(slot, "ON");
    settled();
    const auto start = std::chrono::steady_clock::now();
    station.session->close();
    state.SetIterationTime(Seconds(std::chrono::steady_clock::now() - start).count());
}

void CloseWhileFourWorkersRest(benchmark::State& state) {
    for (auto _ : state) {
        auto clock = std::make_shared<RestingClock>();
        timeClose(state, clock, [&] {
            while (clock->rests() < slots) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        });
    }
}

// The system clock throughout: each pass takes 0.5 s (its five 0.1 s pauses), so with four slots
// one pass or another is nearly always under way. close() comes at a random moment of the run.
void CloseWhileFourWorkersRun(benchmark::State& state) {
    std::mt19937 random(7805);
    std::uniform_real_distribution<double> runFor(0.5, 3.0);
    for (auto _ : state) {
        timeClose(state, kelvane::systemClock(), [&] { std::this_thread::sleep_for(Seconds(runFor(random))); });
    }
}

BENCHMARK(FourWorkersResidentMemory)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(SamplingPass)->Unit(benchmark::kMicrosecond);
// One close() a repetition, so that the slowest of them shows.
double slowest(const std::vector<double>& times) { return *std::max_element(times.begin(), times.end()); }
BENCHMARK(CloseWhileFourWorkersRest)
    ->UseManualTime()
    ->Iterations(1)
    ->Repetitions(20)
    ->ComputeStatistics("max", slowest)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(CloseWhileFourWorkersRun)
    ->UseManualTime()
    ->Iterations(1)
    ->Repetitions(20)
    ->ComputeStatistics("max", slowest)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
