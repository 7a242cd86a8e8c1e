// Tray moves: each checks the position sensors it depends on, starts the move, and confirms it
// on the target sensor. A sensor counts as active here only when it answers the number 1.
#include <kelvane/FixtureControl.hpp>

#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/replies.hpp>

#include <fmt/format.h>

namespace kelvane {
namespace {

constexpr double liftDeadlineSeconds = 5.0;    // up and down
constexpr double travelDeadlineSeconds = 15.0;  // in and out

constexpr std::string_view pleaseUpFirst = "Please UP first!";
constexpr std::string_view pleaseInFirst = "Please IN first!";
constexpr std::string_view alreadyIn = "Current state is IN already!";
constexpr std::string_view alreadyOut = "Current state is OUT already!";
constexpr std::string_view dutNotRight = "Can not down,Because DUT state is not right!";

constexpr std::string_view upTimeout =
    "Fixture up action is executed,but up sensor is not OK\uFF01";
constexpr std::string_view downTimeout =
    "Fixture down action is executed,but down sensor is not OK\uFF01";
// The in move names the down sensor in its timeout although it polls the in sensor; hosts
// know the text as it is, so it stays.
constexpr std::string_view inTimeout =
    "Fixture in action is executed,but down sensor is not OK\uFF01";
constexpr std::string_view outTimeout =
    "Fixture out action is executed,but out sensor is not OK\uFF01";

// A refused move logs its reason as a line of its own ending in "\r".
std::string refusalLine(std::string_view reason) { return fmt::format("{}\r", reason); }

std::string currentStateLine(const Value& reading) {
    return fmt::format("Current state: {}\r", describe(reading));
}

}  // namespace

Value FixtureControl::trayUp() {
    log("Fixture UP.");
    Value reply = call(methods::fixtureUp);
    if (!isText(reply, replies::upDone)) return reply;
    return pollSensor(std::string(methods::upSensorRead), liftDeadlineSeconds, "UP OK\r", "UP OK",
                      upTimeout);
}

Value FixtureControl::trayDown() {
    log("Fixture Down.");
    Value in = call(methods::inSensorRead);
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

    Value reply = call(methods::fixtureDown);
    if (!isText(reply, replies::downDone)) return reply;
    return pollSensor(std::string(methods::downSensorRead), liftDeadlineSeconds, "DOWN OK.\r",
                      "DOWN OK", downTimeout);
}

Value FixtureControl::trayIn() {
    log("Fixture IN.");
    Value up = call(methods::upSensorRead);
    Value in = call(methods::inSensorRead);
    Value down = call(methods::downSensorRead);
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

    Value reply = call(methods::fixtureIn);
    if (!isText(reply, replies::inDone)) return reply;
    return pollSensor(std::string(methods::inSensorRead), travelDeadlineSeconds, "IN OK.\r",
                      "IN OK", inTimeout);
}

Value FixtureControl::trayOut() {
    log("Fixture OUT.");
    Value out = call(methods::outSensorRead);
    Value down = call(methods::downSensorRead);
    if (isNumberOne(out)) {
        log(refusalLine(alreadyOut));
        return std::string(alreadyOut);
    }
    // Only a lowered tray blocks the way out; the tray need not read UP.
    if (isNumberOne(down)) {
        log(refusalLine(pleaseUpFirst));
        return std::string(pleaseUpFirst);
    }

    Value reply = call(methods::fixtureOut);
    if (!isText(reply, replies::outDone)) return reply;
    return pollSensor(std::string(methods::outSensorRead), travelDeadlineSeconds, "OUT OK.\r",
                      "OUT OK", outTimeout);
}

}  // namespace kelvane
