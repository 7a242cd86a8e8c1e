// The session's TEC members for sampling, failure records, files and set-up: each forwards to
// the TEC core with the session's tables and locks.
#include <kelvane/FixtureControl.hpp>

#include "session/fixture_control_private.hpp"
#include "tec/failure_records.hpp"
#include "tec/files.hpp"
#include "tec/sampling.hpp"

#include <algorithm>
#include <optional>

namespace kelvane {
namespace {

constexpr std::int64_t canBitRate = 500000;

tec::Sampler samplerOf(FixtureControl& session) {
    const Platform& platform = FixtureControl::Private::of(session).platform;
    return tec::Sampler{
        [&session](const Value& messageId, const std::string& command, std::int32_t slot) {
            Value answer = session.sendCanCommandStringNeedFeedback(messageId, command, slot);
            return answer.is_string() ? std::optional(answer.get<std::string>()) : std::nullopt;
        },
        *platform.clock, *platform.log,
        [&session](std::int32_t slot, const std::string& line) {
            session.saveTecTemplog(slot, line);
        }};
}

}  // namespace

bool FixtureControl::setUpTecMonitoring(std::int32_t slotCount) {
    if (!canConfig(Value(canBitRate))) {
        log("need TEC,Config Can fail.");
        return false;
    }
    log("need TEC,Config Can success.");
    tecTempLogPath = "";
    d_->tecTempThreadArray.emplace();
    d_->tecTempThreadArray->reserve(static_cast<std::size_t>(std::max(slotCount, 0)));
    tecRecordItemNameArray = Value::array();
    tecTempStableFlag = Value::array();
    tecTempTimes = Value::array();
    for (std::int32_t i = 0; i < slotCount; ++i) {
        tecRecordItemNameArray.push_back("NOT SET");
        tecTempStableFlag.push_back("YES");
        tecTempTimes.push_back(0);
    }
    return true;
}

Value FixtureControl::getTecRecord(std::int32_t /*slot*/) {
    return tec::FailureRecords(tecRecordArr, d_->recordsMutex).snapshot();
}

void FixtureControl::tecTempRecord(std::int32_t slot, const Value& messageId) {
    std::lock_guard objectLock(d_->objectLock);
    tec::FailureRecords records(tecRecordArr, d_->recordsMutex);
    tec::samplingPass(samplerOf(*this), {tecTempStableFlag, tecTempTimes, tecRecordItemNameArray},
                      records, slot, messageId);
}

std::string FixtureControl::tecTempRecord2(std::int32_t slot) {
    std::lock_guard objectLock(d_->objectLock);
    return tec::readingOnDemand(samplerOf(*this), tecRecordItemNameArray, slot);
}

void FixtureControl::saveTecMonitorLogInfo(std::int32_t slot, const std::string& text) {
    tec::TecFiles{d_->platform, identifier}.appendMonitorLine(slot, text);
}

void FixtureControl::saveTecTemplog(std::int32_t slot, const std::string& text) {
    tec::TecFiles{d_->platform, identifier}.appendCsv(slot, text);
}

}  // namespace kelvane
