// The session's TEC members: each forwards to the session's TEC monitor. A worker keeps the
// session, which owns the monitor, alive while its loop runs.
#include <kelvane/FixtureControl.hpp>

#include "session/fixture_control_private.hpp"

namespace kelvane {

bool FixtureControl::setUpTecMonitoring(std::int32_t slotCount) { return d_->tec.setUpTecMonitoring(slotCount); }

void FixtureControl::tecTempGet(std::int32_t slot, const std::string& state) {
    d_->tec.tecTempGet(slot, state, weak_from_this());
}

void FixtureControl::creatTecTempThread(std::int32_t slot) { d_->tec.creatTecTempThread(slot, weak_from_this()); }

Value FixtureControl::getTecRecord(std::int32_t /*slot*/) { return d_->tec.records().snapshot(); }

void FixtureControl::tecTempRecord(std::int32_t slot, const Value& messageId) {
    d_->tec.tecTempRecord(slot, messageId);
}

std::string FixtureControl::tecTempRecord2(std::int32_t slot) { return d_->tec.tecTempRecord2(slot); }

void FixtureControl::saveTecMonitorLogInfo(std::int32_t slot, const std::string& text) {
    d_->tec.saveTecMonitorLogInfo(slot, text);
}

void FixtureControl::saveTecTemplog(std::int32_t slot, const std::string& text) { d_->tec.saveTecTemplog(slot, text); }

}  // namespace kelvane
