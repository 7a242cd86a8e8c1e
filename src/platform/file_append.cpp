#include "platform/file_append.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

namespace kelvane {

bool isAscii(std::string_view text) {
    for (unsigned char c : text) {
        if (c > 0x7f) return false;
    }
    return true;
}

AppendResult appendToFile(const std::filesystem::path& path, std::string_view bytes) {
    AppendingFile file(path);
    if (!file.isOpen()) return AppendResult::notOpened;
    const bool written = file.write(bytes);
    const bool closed = file.close();
    return written && closed ? AppendResult::appended : AppendResult::failed;
}

void appendStationLine(const Platform& platform, std::string_view stationPath, std::string_view line,
                       std::string_view failureLine) {
    AppendResult result = AppendResult::failed;
    try {
        result = appendToFile(platform.resolve(stationPath), isAscii(line) ? line : "");
    } catch (const std::exception&) {
    }
    if (result == AppendResult::failed) platform.log->write(failureLine);
}

AppendingFile::AppendingFile(const std::filesystem::path& path) {
    fd_ = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    struct stat status {};
    if (fd_ >= 0 && ::fstat(fd_, &status) == 0) sizeAtOpen_ = static_cast<std::uint64_t>(status.st_size);
}

AppendingFile::~AppendingFile() { close(); }

bool AppendingFile::close() {
    if (fd_ < 0) return true;
    const int fd = std::exchange(fd_, -1);
    // EINTR is no loss: the descriptor is released either way and write() already handed the
    // bytes over; retrying could close a descriptor another thread has just been given.
    return ::close(fd) == 0 || errno == EINTR;
}

bool AppendingFile::write(std::string_view bytes) {
    if (fd_ < 0) return false;
    while (!bytes.empty()) {
        auto written = ::write(fd_, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

bool replaceFile(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::error_code error;
    std::filesystem::rename(from, to, error);
    return !error;
}

}  // namespace kelvane
