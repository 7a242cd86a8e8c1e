#include "bounded_lines.hpp"

#include <cerrno>
#include <cstring>

namespace kelvane::tools {
namespace {

constexpr std::size_t chunkBytes = 64 << 10;

}  // namespace

BoundedLines::BoundedLines(const std::string& path, std::size_t longest)
    : file_(std::fopen(path.c_str(), "rb")), longest_(longest) {
    if (!file_) fail(errno);
}

BoundedLines::Read BoundedLines::fail(int error) {
    if (problem_.empty()) problem_ = error != 0 ? std::strerror(error) : "read error";
    file_.reset();
    line_.clear();
    return Read::failed;
}

// False at the file's end, or after a read error.
bool BoundedLines::fill() {
    if (buffer_.empty()) buffer_.resize(chunkBytes);
    errno = 0;
    end_ = std::fread(buffer_.data(), 1, buffer_.size(), file_.get());
    start_ = 0;
    if (end_ == 0 && std::ferror(file_.get())) fail(errno);
    return end_ > 0;
}

BoundedLines::Read BoundedLines::next() {
    if (!file_) return problem_.empty() ? Read::end : Read::failed;
    line_.clear();
    bool started = false;
    while (start_ < end_ || fill()) {
        const char* from = buffer_.data() + start_;
        const auto* newline = static_cast<const char*>(std::memchr(from, '\n', end_ - start_));
        std::size_t length = newline ? static_cast<std::size_t>(newline - from) : end_ - start_;
        start_ += newline ? length + 1 : length;
        if (skipping_) {
            skipping_ = !newline;
            continue;
        }
        started = true;
        if (line_.size() + length > longest_) {
            line_.clear();
            skipping_ = !newline;
            ++number_;
            return Read::tooLong;
        }
        line_.append(from, length);
        if (newline) break;
    }
    if (!file_) return Read::failed;
    if (!started) return Read::end;
    ++number_;
    return Read::line;
}

}  // namespace kelvane::tools
