#include "session/fixture_control_private.hpp"

#include "can/senders.hpp"

namespace kelvane {

// The client is copied into the bridge, so a host that replaces the session's client during an
// exchange cannot destroy it under the exchange. The CAN code's monitor-log lines go straight to
// the slot's TEC files.
can::Bridge FixtureControl::Private::canBridge() const {
    return can::Bridge{read(fixtureControlClient), *platform.clock, *platform.log,
                       [files = tecFiles()](std::int32_t slot, const std::string& text) {
                           files.appendMonitorLine(slot, text);
                       }};
}

tec::TecFiles FixtureControl::Private::tecFiles() const {
    return tec::TecFiles{platform, read(identifier)};
}

// A pass sends its commands through the CAN bridge and writes its lines to the slot's files
// directly, not through the session's public members.
tec::Sampler FixtureControl::Private::sampler() const {
    return tec::Sampler{
        [bridge = canBridge()](const Value& messageId, const std::string& command,
                               std::int32_t slot) {
            return can::sendCommandForAnswer(bridge, messageId, command, slot);
        },
        *platform.clock, *platform.log,
        [files = tecFiles()](std::int32_t slot, const std::string& line) {
            files.appendCsv(slot, line);
        }};
}

}  // namespace kelvane
