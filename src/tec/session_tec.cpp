// The session's TEC members for sampling, failure records, files and set-up: each forwards to
// the TEC core with the views of the session's tables and locks.
#include <kelvane/FixtureControl.hpp>

#include "session/fixture_control_private.hpp"

#include <algorithm>

namespace kelvane {
namespace {

constexpr std::int64_t canBitRate = 500000;

}  // namespace

bool FixtureControl::setUpTecMonitoring(std::int32_t slotCount) {
    if (!canConfig(Value(canBitRate))) {
        log("need TEC,Config Can fail.");
        return false;
    }
    log("need TEC,Config Can success.");
    tecTempLogPath("");
    d_->tecTempThreadArray.emplace();
    d_->tecTempThreadArray->reserve(static_cast<std::size_t>(std::max(slotCount, 0)));
    Value itemNames = Value::array(), stableFlags = Value::array(), warmUpPasses = Value::array();
    for (std::int32_t i = 0; i < slotCount; ++i) {
        itemNames.push_back("NOT SET");
        stableFlags.push_back("YES");
        warmUpPasses.push_back(0);
    }
    tecRecordItemNameArray(std::move(itemNames));
    tecTempStableFlag(std::move(stableFlags));
    tecTempTimes(std::move(warmUpPasses));
    return true;
}

Value FixtureControl::getTecRecord(std::int32_t /*slot*/) {
    return d_->failureRecords().snapshot();
}

void FixtureControl::tecTempRecord(std::int32_t slot, const Value& messageId) {
    std::lock_guard objectLock(d_->objectLock);
    tec::SlotTables tables = d_->slotTables();
    tec::FailureRecords records = d_->failureRecords();
    tec::samplingPass(d_->sampler(), tables, records, slot, messageId);
}

std::string FixtureControl::tecTempRecord2(std::int32_t slot) {
    std::lock_guard objectLock(d_->objectLock);
    return tec::readingOnDemand(d_->sampler(), d_->slotTables(), slot);
}

void FixtureControl::saveTecMonitorLogInfo(std::int32_t slot, const std::string& text) {
    d_->tecFiles().appendMonitorLine(slot, text);
}

void FixtureControl::saveTecTemplog(std::int32_t slot, const std::string& text) {
    d_->tecFiles().appendCsv(slot, text);
}

}  // namespace kelvane
