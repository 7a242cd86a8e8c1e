// The fixture log: the station's record of which controller this library talked to.
#include <kelvane/FixtureControl.hpp>

#include "platform/file_append.hpp"
#include "session/fixture_control_private.hpp"

namespace kelvane {
namespace {

constexpr std::string_view fixtureLogPath = "/vault/Korva/Fixture.log";

}  // namespace

void FixtureControl::saveSamplelog(const std::string& text) {
    appendStationLine(d_->platform, fixtureLogPath, text + "\r\n", "save datalogger exception !");
}

}  // namespace kelvane
