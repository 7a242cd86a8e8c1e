// The station information file is written by other station software: whatever it holds, the
// lookups give a text (empty for anything unusable) and nothing else happens.
#include "fuzz_session.hpp"

#include <cstddef>
#include <cstdint>
#include <fstream>

using namespace kelvane;

namespace {

struct StationFile {
    std::filesystem::path root = fuzz::makeFileRoot();
    std::shared_ptr<FixtureControl> session = fuzz::makeSession(root);
    std::filesystem::path file = root / "vault/data_collection/test_station_config/zt_station_info.json";

    StationFile() { std::filesystem::create_directories(file.parent_path()); }
};

StationFile& station() {
    static StationFile shared;
    return shared;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    StationFile& s = station();
    {
        std::ofstream out(s.file, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    for (const char* inner : {"id", "line", "gain", "flag", "list", ""}) {
        s.session->GetZtJsonInfo("station", inner);
    }
    s.session->GetZtJsonInfo("", "");
    return 0;
}
