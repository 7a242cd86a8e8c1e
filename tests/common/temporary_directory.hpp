// A fresh folder of its own, removed with everything in it when the object goes away.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace kelvane::testing {

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kelvane-test-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data()) ? pattern : throw std::runtime_error("no temporary folder");
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace kelvane::testing
