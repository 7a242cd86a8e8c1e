// A FixtureControl wired to fakes: a scripted controller, virtual time, a captured log and a
// temporary file-system root.
#pragma once

#include "fake_rpc_client.hpp"
#include "temporary_directory.hpp"
#include "virtual_clock.hpp"

#include <kelvane/FixtureControl.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace kelvane::testing {

// A file's bytes as they are; empty when it cannot be read.
inline std::string fileText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct SessionFixture {
    std::shared_ptr<FakeRpcClient> controller = std::make_shared<FakeRpcClient>();
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    std::shared_ptr<CapturingLog> log = std::make_shared<CapturingLog>();
    TemporaryDirectory root;

    // The controller is there, and so are the TEC files' folders of slots 1 to 4.
    SessionFixture() {
        controller->answer("server.mode", Value("normal"));
        for (int slot = 1; slot <= 4; ++slot) std::filesystem::create_directories(slotFolder(slot));
    }

    Platform platform() {
        return {clock, log, root.path(), [client = controller](const std::string&, std::uint32_t) { return client; }};
    }

    static Value topology(Value scanSN = nullptr) {
        Value topology = {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", 7805}}}, {"identifier", "Fixture3"}};
        if (!scanSN.is_null()) topology["ScanSN"] = scanSN;
        return topology;
    }

    // The folder of a slot's TEC files for the identifier "Fixture3" (group 2).
    std::filesystem::path slotFolder(int slot) const {
        return root.path() / ("Users/stnuser/Library/Logs/Korva/active/group2-slot" + std::to_string(slot) + "/user");
    }

    // A connected session; the calls and log lines of creation are cleared.
    std::shared_ptr<FixtureControl> connect() {
        auto session = FixtureControl::initWithIP(topology(), platform());
        controller->clearCalls();
        log->clear();
        return session;
    }
};

}  // namespace kelvane::testing
