// The session's properties: each getter copies and each setter replaces its value under a lock
// held for that alone, so neither a host nor a TEC worker waits for a pass. The TEC properties
// are the TEC monitor's.
#include <kelvane/FixtureControl.hpp>

#include "session/fixture_control_private.hpp"

namespace kelvane {

using tec::SlotTables;

std::shared_ptr<RpcClient> FixtureControl::fixtureControlClient() const { return d_->controller.get(); }
void FixtureControl::fixtureControlClient(std::shared_ptr<RpcClient> client) { d_->controller.set(std::move(client)); }

std::shared_ptr<std::thread> FixtureControl::threadReset() const { return d_->threadReset.get(); }
void FixtureControl::threadReset(std::shared_ptr<std::thread> thread) { d_->threadReset.set(std::move(thread)); }

Value FixtureControl::identifier() const { return d_->identifier.get(); }
void FixtureControl::identifier(Value identifier) { d_->identifier.set(std::move(identifier)); }

Value FixtureControl::toPology() const { return d_->toPology.get(); }
void FixtureControl::toPology(Value topology) { d_->toPology.set(std::move(topology)); }

std::string FixtureControl::fixtureId() const { return d_->fixtureId.get(); }
void FixtureControl::fixtureId(std::string fixtureId) { d_->fixtureId.set(std::move(fixtureId)); }

std::string FixtureControl::tecTempLogPath() const { return d_->tec.tecTempLogPath.get(); }
void FixtureControl::tecTempLogPath(std::string path) { d_->tec.tecTempLogPath.set(std::move(path)); }

std::string FixtureControl::tecVersion() const { return d_->tec.tecVersion.get(); }
void FixtureControl::tecVersion(std::string version) { d_->tec.tecVersion.set(std::move(version)); }

Value FixtureControl::tecRecordItemNameArray() const { return d_->tec.tables().table(SlotTables::itemNames); }
void FixtureControl::tecRecordItemNameArray(Value names) {
    d_->tec.tables().setTable(SlotTables::itemNames, std::move(names));
}

Value FixtureControl::tecTempStableFlag() const { return d_->tec.tables().table(SlotTables::stableFlags); }
void FixtureControl::tecTempStableFlag(Value flags) {
    d_->tec.tables().setTable(SlotTables::stableFlags, std::move(flags));
}

Value FixtureControl::tecTempTimes() const { return d_->tec.tables().table(SlotTables::warmUpPasses); }
void FixtureControl::tecTempTimes(Value passes) {
    d_->tec.tables().setTable(SlotTables::warmUpPasses, std::move(passes));
}

Value FixtureControl::tecRecordArr() const { return d_->tec.records().get(); }
void FixtureControl::tecRecordArr(Value records) { d_->tec.records().set(std::move(records)); }

}  // namespace kelvane
