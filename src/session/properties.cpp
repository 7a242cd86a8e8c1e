// The session's properties: each getter copies and each setter replaces under the state lock,
// which TEC workers take for one entry at a time, so neither side waits for a pass.
#include <kelvane/FixtureControl.hpp>

#include "session/fixture_control_private.hpp"

namespace kelvane {

std::shared_ptr<RpcClient> FixtureControl::fixtureControlClient() const {
    return d_->read(d_->fixtureControlClient);
}
void FixtureControl::fixtureControlClient(std::shared_ptr<RpcClient> client) {
    d_->write(d_->fixtureControlClient, std::move(client));
}

std::shared_ptr<std::thread> FixtureControl::threadReset() const {
    return d_->read(d_->threadReset);
}
void FixtureControl::threadReset(std::shared_ptr<std::thread> thread) {
    d_->write(d_->threadReset, std::move(thread));
}

Value FixtureControl::identifier() const { return d_->read(d_->identifier); }
void FixtureControl::identifier(Value identifier) {
    d_->write(d_->identifier, std::move(identifier));
}

Value FixtureControl::toPology() const { return d_->read(d_->toPology); }
void FixtureControl::toPology(Value topology) { d_->write(d_->toPology, std::move(topology)); }

std::string FixtureControl::fixtureId() const { return d_->read(d_->fixtureId); }
void FixtureControl::fixtureId(std::string fixtureId) {
    d_->write(d_->fixtureId, std::move(fixtureId));
}

std::string FixtureControl::tecTempLogPath() const { return d_->read(d_->tecTempLogPath); }
void FixtureControl::tecTempLogPath(std::string path) {
    d_->write(d_->tecTempLogPath, std::move(path));
}

std::string FixtureControl::tecVersion() const { return d_->read(d_->tecVersion); }
void FixtureControl::tecVersion(std::string version) {
    d_->write(d_->tecVersion, std::move(version));
}

Value FixtureControl::tecRecordItemNameArray() const {
    return d_->read(d_->tecRecordItemNameArray);
}
void FixtureControl::tecRecordItemNameArray(Value names) {
    d_->write(d_->tecRecordItemNameArray, std::move(names));
}

Value FixtureControl::tecTempStableFlag() const { return d_->read(d_->tecTempStableFlag); }
void FixtureControl::tecTempStableFlag(Value flags) {
    d_->write(d_->tecTempStableFlag, std::move(flags));
}

Value FixtureControl::tecTempTimes() const { return d_->read(d_->tecTempTimes); }
void FixtureControl::tecTempTimes(Value passes) { d_->write(d_->tecTempTimes, std::move(passes)); }

// The failure records have their own lock, the one a pass takes to append.
Value FixtureControl::tecRecordArr() const {
    std::lock_guard lock(d_->recordsMutex);
    return d_->tecRecordArr;
}
void FixtureControl::tecRecordArr(Value records) {
    std::lock_guard lock(d_->recordsMutex);
    std::swap(d_->tecRecordArr, records);
}

}  // namespace kelvane
