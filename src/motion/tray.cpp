// Tray moves: each checks the position sensors it depends on, starts the move, and confirms it
// on the target sensor, which it reads until it reports active or time runs out. A sensor counts
// as active here only when it answers the number 1.
#include "motion/motion.hpp"

#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/replies.hpp>
#include "session/fixture_control_private.hpp"

#include <fmt/format.h>

namespace kelvane {

// The session's tray moves are motion's.
Value FixtureControl::trayUp() { return d_->motion.trayUp(); }
Value FixtureControl::trayDown() { return d_->motion.trayDown(); }
Value FixtureControl::trayIn() { return d_->motion.trayIn(); }
Value FixtureControl::trayOut() { return d_->motion.trayOut(); }

namespace {

constexpr double liftDeadlineSeconds = 5.0;     // up and down
constexpr double travelDeadlineSeconds = 15.0;  // in and out
constexpr double pollPauseSeconds = 0.5;

constexpr std::string_view pleaseUpFirst = "Please UP first!";
constexpr std::string_view pleaseInFirst = "Please IN first!";
constexpr std::string_view alreadyIn = "Current state is IN already!";
constexpr std::string_view alreadyOut = "Current state is OUT already!";
constexpr std::string_view dutNotRight = "Can not down,Because DUT state is not right!";

constexpr std::string_view upTimeout = "Fixture up action is executed,but up sensor is not OK\uFF01";
constexpr std::string_view downTimeout = "Fixture down action is executed,but down sensor is not OK\uFF01";
// The in move names the down sensor in its timeout although it polls the in sensor; hosts
// know the text as it is, so it stays.
constexpr std::string_view inTimeout = "Fixture in action is executed,but down sensor is not OK\uFF01";
constexpr std::string_view outTimeout = "Fixture out action is executed,but out sensor is not OK\uFF01";

// A refused move logs its reason as a line of its own ending in "\r".
std::string refusalLine(std::string_view reason) { return fmt::format("{}\r", reason); }

std::string currentStateLine(const Value& reading) { return fmt::format("Current state: {}\r", describe(reading)); }

}  // namespace

Value Motion::trayUp() {
    log("Fixture UP.");
    Value reply = controller_.call(methods::fixtureUp);
    if (!isText(reply, replies::upDone)) return reply;
    return pollSensor(methods::upSensorRead, liftDeadlineSeconds, "UP OK\r", "UP OK", upTimeout);
}

Value Motion::trayDown() {
    log("Fixture Down.");
    Value in = controller_.call(methods::inSensorRead);
    log(currentStateLine(in));
    if (!isNumberOne(in)) {
        log(refusalLine(pleaseInFirst));
        return std::string(pleaseInFirst);
    }
    log("DOWN");
    if (!isText(checkDUTSensor(), replies::dutPresent)) {
        log("DUT state is not right!");
        return std::string(dutNotRight);
    }

    Value reply = controller_.call(methods::fixtureDown);
    if (!isText(reply, replies::downDone)) return reply;
    return pollSensor(methods::downSensorRead, liftDeadlineSeconds, "DOWN OK.\r", "DOWN OK", downTimeout);
}

Value Motion::trayIn() {
    log("Fixture IN.");
    Value up = controller_.call(methods::upSensorRead);
    Value in = controller_.call(methods::inSensorRead);
    Value down = controller_.call(methods::downSensorRead);
    log(currentStateLine(up));
    if (!isNumberOne(up)) {
        log(refusalLine(pleaseUpFirst));
        return std::string(pleaseUpFirst);
    }
    // A lowered tray can only be lowered from the in position, so it counts as in.
    if (isNumberOne(in) || isNumberOne(down)) {
        log(refusalLine(alreadyIn));
        return std::string(alreadyIn);
    }

    Value reply = controller_.call(methods::fixtureIn);
    if (!isText(reply, replies::inDone)) return reply;
    return pollSensor(methods::inSensorRead, travelDeadlineSeconds, "IN OK.\r", "IN OK", inTimeout);
}

Value Motion::trayOut() {
    log("Fixture OUT.");
    Value out = controller_.call(methods::outSensorRead);
    Value down = controller_.call(methods::downSensorRead);
    if (isNumberOne(out)) {
        log(refusalLine(alreadyOut));
        return std::string(alreadyOut);
    }
    // Only a lowered tray blocks the way out; the tray need not read UP.
    if (isNumberOne(down)) {
        log(refusalLine(pleaseUpFirst));
        return std::string(pleaseUpFirst);
    }

    Value reply = controller_.call(methods::fixtureOut);
    if (!isText(reply, replies::outDone)) return reply;
    return pollSensor(methods::outSensorRead, travelDeadlineSeconds, "OUT OK.\r", "OUT OK", outTimeout);
}

Value Motion::pollSensor(std::string_view sensorMethod, double deadlineSeconds, std::string_view successLog,
                         std::string_view successResult, std::string_view timeoutResult) {
    // Measured on the steady clock, so a time sync during a move neither stretches nor cuts it.
    const double start = clock_.monotonic();
    double now = start;
    // The time is taken right after each read but tested only after the pause, so one last
    // read may start up to a pause after the deadline; a sensor that settles right at the
    // deadline is still seen.
    while (now - start < deadlineSeconds) {
        if (controller_.closed()) break;  // the host ended the session: the move is not confirmed
        Value reading = controller_.call(sensorMethod);
        now = clock_.monotonic();
        if (isNumberOne(reading)) {
            log(successLog);
            return std::string(successResult);
        }
        clock_.sleepFor(pollPauseSeconds);
    }
    return std::string(timeoutResult);
}

}  // namespace kelvane
