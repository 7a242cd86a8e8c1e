// The fixture log: the station's record of which controller this library talked to.
#include <kelvane/FixtureControl.hpp>

#include "platform/file_append.hpp"
#include "session/fixture_control_private.hpp"

namespace kelvane {
namespace {

constexpr std::string_view fixtureLogPath = "/vault/Korva/Fixture.log";

}  // namespace

void FixtureControl::saveSamplelog(const std::string& text) {
    try {
        auto path = d_->platform.resolve(fixtureLogPath);
        // A text that is not ASCII is not written, but the file is still created.
        appendToFile(path, isAscii(text) ? text + "\r\n" : std::string());
    } catch (const std::exception&) {
        log("save datalogger exception !");
    }
}

}  // namespace kelvane
