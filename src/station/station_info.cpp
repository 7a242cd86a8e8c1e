// One value out of the test station's information file.
#include <kelvane/FixtureControl.hpp>

#include "session/fixture_control_private.hpp"

#include <fstream>
#include <sstream>

namespace kelvane {
namespace {

constexpr std::string_view stationInfoPath = "/vault/data_collection/test_station_config/zt_station_info.json";

Value readJsonFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return nullptr;
    std::stringstream text;
    text << file.rdbuf();
    Value parsed = Value::parse(text.str(), nullptr, false);
    return parsed.is_discarded() ? Value() : parsed;
}

Value member(const Value& dictionary, const std::string& key) {
    if (!dictionary.is_object()) return nullptr;
    auto found = dictionary.find(key);
    return found == dictionary.end() ? Value() : *found;
}

}  // namespace

std::string FixtureControl::GetZtJsonInfo(const std::string& outerKey, const std::string& innerKey) {
    try {
        Value inner = member(member(readJsonFile(d_->platform.resolve(stationInfoPath)), outerKey), innerKey);
        if (inner.is_string() || inner.is_number() || inner.is_boolean()) return describe(inner);
    } catch (const std::exception&) {
        // An unreadable file reads as no value.
    }
    return "";
}

}  // namespace kelvane
