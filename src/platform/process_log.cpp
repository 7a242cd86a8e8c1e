#include <kelvane/Platform.hpp>

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

namespace kelvane {
namespace {

// spdlog is used without its registry, so a host that uses spdlog itself sees no name clash.
class StandardErrorLog final : public LogSink {
public:
    StandardErrorLog()
        : logger_("Kelvane", std::make_shared<spdlog::sinks::stderr_sink_mt>()) {
        logger_.set_pattern("%Y-%m-%d %H:%M:%S.%f Kelvane[%P:%t] %v");
        logger_.flush_on(spdlog::level::info);
    }
    void write(std::string_view line) override { logger_.info("{}", line); }

private:
    spdlog::logger logger_;
};

}  // namespace

LogSink::~LogSink() = default;

std::shared_ptr<LogSink> standardErrorLog() {
    static auto log = std::make_shared<StandardErrorLog>();
    return log;
}

void CapturingLog::write(std::string_view line) {
    std::lock_guard lock(mutex_);
    lines_.emplace_back(line);
}

std::vector<std::string> CapturingLog::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

void CapturingLog::clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
}

}  // namespace kelvane
