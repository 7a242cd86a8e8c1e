#include <kelvane/Platform.hpp>

#include "platform/pipe_signal_guard.hpp"

#include <fmt/format.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr const char* linePrefixPattern = "%Y-%m-%d %H:%M:%S.%f Kelvane[%P:%t] %v";

// Writes each formatted line to a stream and flushes it. A write that fails (a closed standard
// error, a full disk) loses the line and nothing else.
class StreamSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    StreamSink(std::FILE* stream, bool owned) : stream_(stream), owned_(owned) {}
    ~StreamSink() override {
        if (owned_) std::fclose(stream_);
    }

private:
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t formatted;
        formatter_->format(message, formatted);
        std::fwrite(formatted.data(), 1, formatted.size(), stream_);
        std::fflush(stream_);
    }
    void flush_() override { std::fflush(stream_); }

    std::FILE* stream_;
    bool owned_;
};

// spdlog is used without its registry, so a host that uses spdlog itself sees no name clash.
class StreamLog final : public LogSink {
public:
    explicit StreamLog(std::shared_ptr<StreamSink> sink) : logger_("Kelvane", std::move(sink)) {
        // No line end from the formatter: write() adds one only where the text lacks it.
        logger_.set_formatter(
            std::make_unique<spdlog::pattern_formatter>(linePrefixPattern, spdlog::pattern_time_type::local, ""));
    }

    void write(std::string_view line) override {
        std::string_view lineEnd = line.ends_with('\n') ? "" : "\n";
        PipeSignalGuard noSignalForTheHost;
        logger_.info("{}{}", line, lineEnd);
    }

private:
    spdlog::logger logger_;
};

class DiscardingLog final : public LogSink {
public:
    void write(std::string_view) override {}
};

std::shared_ptr<LogSink> standardErrorStream() {
    return std::make_shared<StreamLog>(std::make_shared<StreamSink>(stderr, false));
}

std::FILE* openForAppending(const std::string& path) {
    int descriptor = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (descriptor < 0) return nullptr;
    std::FILE* stream = ::fdopen(descriptor, "a");
    if (!stream) ::close(descriptor);
    return stream;
}

}  // namespace

LogSink::~LogSink() = default;

std::shared_ptr<LogSink> processLogRoutedBy(std::string_view route) {
    if (route.empty() || route == "stderr") return standardErrorStream();
    if (route == "off") return std::make_shared<DiscardingLog>();
    if (std::FILE* file = openForAppending(std::string(route))) {
        return std::make_shared<StreamLog>(std::make_shared<StreamSink>(file, true));
    }
    auto log = standardErrorStream();
    log->write(
        fmt::format("process log {}: the file cannot be opened for appending; logging to "
                    "standard error",
                    route));
    return log;
}

std::shared_ptr<LogSink> defaultProcessLog() {
    static const std::shared_ptr<LogSink> log = [] {
        const char* route = std::getenv("KELVANE_LOG");
        return processLogRoutedBy(route ? route : "");
    }();
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
