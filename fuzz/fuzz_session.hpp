// A session for fuzz targets: a controller that answers only "server.mode", a log that keeps
// nothing (millions of runs must not grow the process), and a file root of its own.
#pragma once

#include <kelvane/FixtureControl.hpp>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace kelvane::fuzz {

class ModeOnlyController final : public RpcClient {
public:
    Value call(const std::string& method, const Value&, const Value&, RpcErrorSlot) override {
        return method == "server.mode" ? Value("normal") : Value();
    }
};

class DiscardingLog final : public LogSink {
public:
    void write(std::string_view) override {}
};

// A fresh directory under the system's temporary folder, left behind for a crash to inspect.
inline std::filesystem::path makeFileRoot() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kelvane-fuzz-XXXXXX").string();
    if (!mkdtemp(pattern.data())) std::abort();
    return pattern;
}

inline std::shared_ptr<FixtureControl> makeSession(const std::filesystem::path& fileRoot) {
    Platform platform;
    platform.clock = systemClock();
    platform.log = std::make_shared<DiscardingLog>();
    platform.fileRoot = fileRoot;
    auto controller = std::make_shared<ModeOnlyController>();
    platform.connect = [controller](const std::string&, std::uint32_t) { return controller; };
    Value topology = {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", 7805}}}, {"identifier", "Fixture1"}};
    auto session = FixtureControl::initWithIP(topology, platform);
    if (!session) std::abort();
    return session;
}

}  // namespace kelvane::fuzz
