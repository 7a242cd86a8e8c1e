// The magnet lock that clamps the fixture, and the fixture's initial IO state.
#include "motion/motion.hpp"

#include "io/fixture_io_set.hpp"
#include <kelvane/protocol/methods.hpp>
#include "session/fixture_control_private.hpp"

namespace kelvane {

Value FixtureControl::fixtureLock(const std::string& state) { return d_->motion.fixtureLock(state); }
Value FixtureControl::fixtureInit() { return d_->motion.fixtureInit(); }

namespace {

constexpr std::string_view unknownLockState = "Unknown state!";

// IO line 10 off. The list of pairs is wrapped in one more list than a single-line set sends;
// that is the shape the fixture's init has always sent, and it is kept.
Value initialIoList() {
    Value lineTenOff = Value::array({10, 0});
    Value pairs = Value::array({lineTenOff});
    return Value::array({pairs});
}

}  // namespace

Value Motion::fixtureLock(const std::string& state) {
    if (state == "on") {
        log("Fixture Lock!");
        return controller_.call(methods::magnetControl, Value::array({"on"}));
    }
    if (state == "off") {
        log("Fixture Unlock!");
        return controller_.call(methods::magnetControl, Value::array({"off"}));
    }
    log(unknownLockState);
    return std::string(unknownLockState);
}

Value Motion::fixtureInit() {
    log("Fixture Init.");
    Value ioList = initialIoList();
    log(describe(ioList));

    std::optional<RpcError> error;
    Value reply = controller_.call(methods::fixtureIoSet, Value::array({ioList}), io::ioSetKwargs(), &error);
    log("RRRRPPPPCCC!!!!!!");
    log(describe(reply));
    log(error ? error->text() : describe(nullptr));
    return reply;
}

}  // namespace kelvane
