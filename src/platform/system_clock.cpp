#include <kelvane/Platform.hpp>

#include <chrono>
#include <thread>

namespace kelvane {
namespace {

class SystemClock final : public Clock {
public:
    double now() override {
        using namespace std::chrono;
        return duration<double>(system_clock::now().time_since_epoch()).count();
    }
    double monotonic() override {
        using namespace std::chrono;
        return duration<double>(steady_clock::now().time_since_epoch()).count();
    }
    void sleepFor(double seconds) override {
        if (seconds > 0) std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }
    void sleepUnlessCancelled(double seconds, const CancelSignal& cancel) override {
        if (seconds > 0) cancel.waitFor(seconds);
    }
};

}  // namespace

Clock::~Clock() = default;

void Clock::sleepUnlessCancelled(double seconds, const CancelSignal& cancel) {
    if (!cancel.isCancelled()) sleepFor(seconds);
}

std::shared_ptr<Clock> systemClock() {
    static auto clock = std::make_shared<SystemClock>();
    return clock;
}

}  // namespace kelvane
