// The sampling passes: four temperatures and the power stage asked of a slot's TEC controller
// over the CAN bridge, turned into a CSV line, checked, and kept as a failure record when a
// check fails; or, while the slot warms up, one temperature read and logged.
#include "tec/monitor.hpp"

#include "can/bridge.hpp"
#include "platform/local_time.hpp"
#include "tec/files.hpp"
#include "tec/replies.hpp"

#include <fmt/format.h>

#include <climits>
#include <cmath>

namespace kelvane::tec {
namespace {

constexpr double warmUpPauseSeconds = 1.0;
// A slot counts as stable after more than this many warm-up passes.
constexpr long long warmUpPassLimit = 10;
constexpr double minimumTemperature = 21.5;
constexpr float sensorAgreementBand = 3.0f;
constexpr std::string_view lineTimeStamp = "MM/dd/yyyy HH:mm:ss.SSS";
constexpr const char* temperatureCommands[4] = {"get tec temp:1", "get tec temp:2",
                                                "get tec temp:3", "get tec temp:4"};
constexpr const char* powerCommand = "get tec power";

std::string printed(const std::optional<std::string>& answer) {
    return answer ? *answer : describe(Value());
}

struct Answers {
    std::optional<std::string> temperatures[4];
    std::optional<std::string> power;

    bool usable() const {
        for (const auto& answer : temperatures) {
            if (!answer || answer->empty()) return false;
        }
        return power && !power->empty();
    }
};

Answers askController(const can::Bridge& bridge, const Value& messageId, std::int32_t slot) {
    Answers answers;
    for (int i = 0; i < 4; ++i) {
        answers.temperatures[i] = bridge.sendCommandForAnswer(messageId, temperatureCommands[i], slot);
    }
    answers.power = bridge.sendCommandForAnswer(messageId, powerCommand, slot);
    return answers;
}

// The line of a measurement pass and, when every answer came, the sample it shows.
struct Measurement {
    std::string line;
    std::optional<TecSample> sample;
};

Measurement measure(const can::Bridge& bridge, Clock& clock, const SlotTables& tables,
                    std::int32_t slot, const Value& messageId) {
    const Answers answers = askController(bridge, messageId, slot);
    const auto timeStamp = [&] { return formatLocalTime(clock.now(), lineTimeStamp); };
    if (!answers.usable()) {
        return {fmt::format("{},{},{},{},{},{} get null value.\r\n", timeStamp(),
                            printed(answers.temperatures[0]), printed(answers.temperatures[1]),
                            printed(answers.temperatures[2]), printed(answers.temperatures[3]),
                            printed(answers.power)),
                std::nullopt};
    }
    const std::string temperatures[4] = {*answers.temperatures[0], *answers.temperatures[1],
                                         *answers.temperatures[2], *answers.temperatures[3]};
    const TecSample sample = parseSample(temperatures, *answers.power);
    const auto value = [](float number) { return static_cast<double>(number); };
    std::string line = fmt::format(
        "{},{:.2f},{:.2f},{:.2f},{:.2f},{:.2f},{:.2f},{}\r\n", timeStamp(),
        value(sample.sensors[0]), value(sample.sensors[1]), value(sample.sensors[2]),
        value(sample.sensors[3]), value(sample.pwm), value(sample.current),
        describe(tables.entry(SlotTables::itemNames, slot)));
    return {std::move(line), sample};
}

// A value that is not a number fails neither check.
bool belowMinimum(const TecSample& sample) {
    for (float sensor : sample.sensors) {
        if (minimumTemperature > static_cast<double>(sensor)) return true;
    }
    return false;
}

// Only sensors 1 to 3 are compared; sensor 4 is left out on purpose.
bool sensorsDisagree(const TecSample& sample) {
    const auto apart = [](float a, float b) { return std::fabs(a - b) > sensorAgreementBand; };
    const float* s = sample.sensors;
    return apart(s[0], s[1]) || apart(s[0], s[2]) || apart(s[1], s[2]);
}

// Both checks, in this order; the records' lock is taken inside the object lock.
void checkSample(LogSink& log, FailureRecords& records, std::int32_t slot,
                 const TecSample& sample, const std::string& line) {
    if (belowMinimum(sample)) {
        log.write(fmt::format("tecTempRecord Slot{} fail msg:{}", slot, line));
        records.append(line);
    }
    if (sensorsDisagree(sample)) {
        log.write(fmt::format("TesterReporting Slot{} maybe sensor is not normal,msg:{}", slot, line));
        records.append(line);
    }
}

void warmUpPass(const can::Bridge& bridge, const Platform& platform, SlotTables& tables,
                std::int32_t slot, const Value& messageId) {
    const long long passes = integerValue(tables.entry(SlotTables::warmUpPasses, slot));
    tables.setEntry(SlotTables::warmUpPasses, slot, passes < LLONG_MAX ? passes + 1 : passes);
    platform.clock->sleepFor(warmUpPauseSeconds);  // the object lock stays held
    const auto answer = bridge.sendCommandForAnswer(messageId, temperatureCommands[0], slot);
    platform.log->write(fmt::format("Slot{} ntc1:{}", slot, printed(answer)));
    // Read back: a counter table the host has not set up never reaches the limit.
    if (integerValue(tables.entry(SlotTables::warmUpPasses, slot)) > warmUpPassLimit) {
        tables.setEntry(SlotTables::stableFlags, slot, "YES");
        tables.setEntry(SlotTables::warmUpPasses, slot, 0);
        platform.log->write(fmt::format("Slot{} TEC temp stable", slot));
    }
}

}  // namespace

void TecMonitor::tecTempRecord(std::int32_t slot, const Value& messageId) {
    std::lock_guard objectLock(objectLock_);
    const TecFiles files{platform_, identifier_.get()};
    const can::Bridge bridge{platform_, controller_.get(), files.identifier};
    if (isText(tables_.entry(SlotTables::stableFlags, slot), "NO")) {
        warmUpPass(bridge, platform_, tables_, slot, messageId);
        return;
    }
    const Measurement measurement = measure(bridge, *platform_.clock, tables_, slot, messageId);
    files.appendCsv(slot, measurement.line);
    if (measurement.sample) {
        checkSample(*platform_.log, records_, slot, *measurement.sample, measurement.line);
    }
}

std::string TecMonitor::tecTempRecord2(std::int32_t slot) {
    std::lock_guard objectLock(objectLock_);
    const can::Bridge bridge{platform_, controller_.get(), identifier_.get()};
    return measure(bridge, *platform_.clock, tables_, slot, canMessageId(slot)).line;
}

}  // namespace kelvane::tec
