// kelvane-tec-worker-run: TEC monitoring of a few slots against a controller on a loopback
// port, for the tests of the CSV tools. Each switch-on is a session of its own: the slots are
// switched on, run a number of passes, and the session is closed, which waits for its workers.
// The CSV files are left below the given root the way a station finds them, with a header line
// for each switch-on. Prints the number of failure records the sessions kept, then the path of
// each slot's CSV file.
//
//   kelvane-tec-worker-run PORT ROOT PASSES SWITCH_ONS SLOT...
#include <kelvane/FixtureControl.hpp>
#include <kelvane/Platform.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {


// The workers' rest between passes. Every sleep is shortened by the speed-up so that a run of
// a few passes takes seconds; the controller's sensors still settle in real time.
constexpr double workerRestSeconds = 1.5;
constexpr double speedUp = 10;
constexpr const char* identifier = "Fixture1";  // group 0

// The system clock, except that sleeps wait until all slots are switched on (switching a slot
// on drops every slot's failure records, so no pass may record one before the last switch-on),
// that they are shortened, and that the workers' rests are counted.
class RunClock final : public kelvane::Clock {
public:
    double now() override { return system_->now(); }
    double monotonic() override { return system_->monotonic(); }
    void sleepFor(double seconds) override {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return open_; });
        rests_ += seconds == workerRestSeconds;
        changed_.notify_all();
        lock.unlock();
        system_->sleepFor(seconds / speedUp);
    }

    void setOpen(bool open) {
        std::lock_guard lock(mutex_);
        open_ = open;
        changed_.notify_all();
    }
    void waitForRests(long count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return rests_ >= count; });
    }

private:
    std::shared_ptr<kelvane::Clock> system_ = kelvane::systemClock();
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = true;
    long rests_ = 0;
};

std::string slotFolder(int slot) {
    return fmt::format("Users/stnuser/Library/Logs/Korva/active/group0-slot{}/user", slot);
}

// One switch-on of the slots for `passes` passes each; the failure records it kept.
long runSwitchOn(int port, const std::filesystem::path& root, long passes,
                 const std::vector<int>& slots) {
    auto clock = std::make_shared<RunClock>();
    kelvane::Platform platform = kelvane::Platform::defaults();
    platform.clock = clock;
    platform.log = std::make_shared<kelvane::CapturingLog>();  // kept from the output
    platform.fileRoot = root;
    auto session = kelvane::FixtureControl::initWithIP(
        {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", port}}}, {"identifier", identifier}}, platform);
    if (!session || !session->setUpTecMonitoring(slots.back())) {
        throw std::runtime_error(fmt::format("no controller with a CAN bus at port {}", port));
    }
    clock->setOpen(false);
    for (int slot : slots) session->tecTempGet(slot, "ON");
    clock->setOpen(true);
    clock->waitForRests(passes * static_cast<long>(slots.size()));
    session->close();
    return static_cast<long>(session->getTecRecord(0).size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 6) {
        std::fprintf(stderr, "usage: %s PORT ROOT PASSES SWITCH_ONS SLOT...\n", argv[0]);
        return 64;
    }
    try {
        const std::filesystem::path root = argv[2];
        std::vector<int> slots;
        for (int i = 5; i < argc; ++i) slots.push_back(std::stoi(argv[i]));
        std::sort(slots.begin(), slots.end());
        // The station makes the slot folders; the library never does.
        for (int slot : slots) std::filesystem::create_directories(root / slotFolder(slot));

        long records = 0;
        for (int left = std::stoi(argv[4]); left > 0; --left)  // SWITCH_ONS
            records += runSwitchOn(std::stoi(argv[1]), root, std::stol(argv[3]), slots);
        fmt::print("{}\n", records);
        for (int slot : slots)
            fmt::print("{}\n", (root / slotFolder(slot) / fmt::format("TecTemp_{}_Unit{}.csv", identifier, slot)).string());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kelvane-tec-worker-run: %s\n", error.what());
        return 1;
    }
}
