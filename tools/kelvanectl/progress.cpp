#include "progress.hpp"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kelvanectl {
namespace {

constexpr std::chrono::milliseconds refresh{100};
constexpr char spinner[] = {'|', '/', '-', '\\'};
constexpr const char* wipeLine = "\r\033[K";

}  // namespace

Progress::Progress(std::FILE* terminal, std::string label)
    : terminal_(terminal),
      label_(std::move(label)),
      thread_([this](std::stop_token stop) { show(stop); }) {}

Progress::~Progress() {
    thread_.request_stop();
    thread_.join();
    std::fputs(wipeLine, terminal_);
    std::fflush(terminal_);
}

void Progress::show(std::stop_token stop) {
    auto start = std::chrono::steady_clock::now();
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    for (unsigned tick = 0; !stop.stop_requested(); ++tick) {
        std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        std::fprintf(terminal_, "%s%c %s %.1f s", wipeLine, spinner[tick % sizeof spinner],
                     label_.c_str(), elapsed.count());
        std::fflush(terminal_);
        wake.wait_for(lock, stop, refresh, [] { return false; });
    }
}

}  // namespace kelvanectl
