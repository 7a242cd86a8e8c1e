#include "progress.hpp"

#include <chrono>

namespace kelvanectl {
namespace {

constexpr std::chrono::milliseconds refresh{100};
constexpr char spinner[] = {'|', '/', '-', '\\'};
constexpr const char* wipeLine = "\r\033[K";

}  // namespace

Progress::Progress(std::FILE* terminal, std::string label)
    : terminal_(terminal), label_(std::move(label)), thread_([this] { show(); }) {}

Progress::~Progress() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
    std::fputs(wipeLine, terminal_);
    std::fflush(terminal_);
}

void Progress::show() {
    auto start = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    for (unsigned tick = 0; !stopping_; ++tick) {
        std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        std::fprintf(terminal_, "%s%c %s %.1f s", wipeLine, spinner[tick % sizeof spinner], label_.c_str(),
                     elapsed.count());
        std::fflush(terminal_);
        wake_.wait_for(lock, refresh, [this] { return stopping_; });
    }
}

}  // namespace kelvanectl
