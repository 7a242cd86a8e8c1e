// Setting one IO line of the fixture.
#include <kelvane/FixtureControl.hpp>

#include "io/fixture_io_set.hpp"
#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/replies.hpp>

namespace kelvane {
namespace {

constexpr std::string_view ioSetFailed = "Fail";

}  // namespace

Value FixtureControl::setIO(std::int32_t line, std::int32_t state) {
    log("Fixture setIO.");
    Value pairs = Value::array({Value::array({line, state})});

    std::optional<RpcError> error;
    Value reply = call(methods::fixtureIoSet, Value::array({pairs}), io::ioSetKwargs(), &error);
    // Any reply mentioning "done" is the controller's acknowledgement, "not done" included.
    if (describedContains(reply, replies::done)) return reply;
    if (error) {
        log(error->text());
        return error->text();
    }
    return std::string(ioSetFailed);
}

}  // namespace kelvane
