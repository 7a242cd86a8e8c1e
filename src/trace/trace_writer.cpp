#include "trace/trace_writer.hpp"

#include <cstdlib>
#include <map>

namespace kelvane {
namespace {

constexpr std::uint64_t bytesPerMegabyte = 1024 * 1024;
constexpr std::uint64_t defaultTraceLimit = 64 * bytesPerMegabyte;

}  // namespace

std::uint64_t traceLimitFromEnvironment() {
    const char* text = std::getenv("KELVANE_TRACE_MAX_MB");
    if (!text || !*text) return defaultTraceLimit;
    char* end = nullptr;
    unsigned long long megabytes = std::strtoull(text, &end, 10);
    if (*end != '\0' || megabytes == 0 || megabytes > (UINT64_MAX / bytesPerMegabyte)) {
        return defaultTraceLimit;
    }
    return megabytes * bytesPerMegabyte;
}

std::shared_ptr<TraceWriter> traceFileFromEnvironment() {
    const char* path = std::getenv("KELVANE_TRACE");
    if (!path || !*path) return nullptr;
    return traceFile(path, traceLimitFromEnvironment());
}

TraceWriter::TraceWriter(std::filesystem::path path, std::uint64_t maxBytes)
    : path_(std::move(path)), maxBytes_(maxBytes) {}

std::shared_ptr<TraceWriter> traceFile(const std::filesystem::path& path, std::uint64_t maxBytes) {
    static std::mutex mutex;
    static std::map<std::filesystem::path, std::weak_ptr<TraceWriter>> writers;
    std::lock_guard lock(mutex);
    auto& slot = writers[path];
    auto writer = slot.lock();
    if (!writer) {
        writer = std::make_shared<TraceWriter>(path, maxBytes);
        slot = writer;
    }
    return writer;
}

bool TraceWriter::write(std::string_view line) {
    std::lock_guard lock(mutex_);
    if (!file_ && !openLocked()) return false;
    if (size_ > 0 && size_ + line.size() > maxBytes_) {
        rotateLocked();
        if (!file_ && !openLocked()) return false;
    }
    if (!file_->write(line)) {
        file_.reset();  // reopened for the next line: the folder may be back by then
        return false;
    }
    size_ += line.size();
    return true;
}

double TraceWriter::sinceFirstCall(double monotonic) {
    std::lock_guard lock(mutex_);
    if (!firstCall_) firstCall_ = monotonic;
    return monotonic - *firstCall_;
}

bool TraceWriter::openLocked() {
    auto file = std::make_unique<AppendingFile>(path_);
    if (!file->isOpen()) return false;
    size_ = file->sizeAtOpen();
    file_ = std::move(file);
    return true;
}

void TraceWriter::rotateLocked() {
    file_.reset();
    auto older = path_;
    older += ".1";
    replaceFile(path_, older);  // when it fails, the file goes on growing rather than lose lines
}

}  // namespace kelvane
