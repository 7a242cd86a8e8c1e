#include "session_fixture.hpp"

#include <atomic>
#include <unistd.h>

namespace kelvane::testing {

TemporaryDirectory::TemporaryDirectory() {
    static std::atomic<int> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            ("kelvane-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace kelvane::testing
