#include "tec/files.hpp"

#include "helpers/regex_group.hpp"
#include "platform/file_append.hpp"
#include "platform/local_time.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <climits>

namespace kelvane::tec {
namespace {

constexpr std::string_view slotFolder = "/Users/stnuser/Library/Logs/Korva/active/group{}-slot{}/user/";
constexpr std::string_view monitorLogName = "TecControlMonitor_{}_Unit{}.log";
constexpr std::string_view csvName = "TecTemp_{}_Unit{}.csv";
constexpr std::string_view monitorTimeStamp = "YYYY-MM-dd HH:mm:ss:SSSS";

long long groupNumber(const Value& identifier) {
    Value digits = findSubStringByRegexGroup(describe(identifier), "Fixture(\\d+)", 1, nullptr);
    // The number is read as a 32-bit integer, saturating as the station's own tools read it.
    return std::clamp<long long>(integerValue(digits), INT_MIN, INT_MAX) - 1;
}

std::string slotFilePath(const Value& identifier, std::int32_t slot, std::string_view name) {
    return fmt::format(fmt::runtime(slotFolder), groupNumber(identifier), slot) +
           fmt::format(fmt::runtime(name), describe(identifier), slot);
}

}  // namespace

std::string monitorLogPath(const Value& identifier, std::int32_t slot) {
    return slotFilePath(identifier, slot, monitorLogName);
}

std::string csvPath(const Value& identifier, std::int32_t slot) { return slotFilePath(identifier, slot, csvName); }

void TecFiles::appendMonitorLine(std::int32_t slot, const std::string& text) const {
    const std::string stamp = formatLocalTime(platform.clock->now(), monitorTimeStamp);
    appendStationLine(platform, monitorLogPath(identifier, slot), stamp + ":    " + text + "\r\n",
                      "save TecControlMonitor exception !");
}

void TecFiles::appendCsv(std::int32_t slot, const std::string& text) const {
    appendStationLine(platform, csvPath(identifier, slot), text, "save TecTemplog exception !");
}

}  // namespace kelvane::tec
