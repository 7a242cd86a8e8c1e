// The sampling passes: four temperatures and the power stage asked of a slot's TEC controller
// over the CAN bridge, turned into a CSV line, checked, and kept as a failure record when a
// check fails; or, while the slot warms up, one temperature read and logged.
#include "tec/monitor.hpp"

#include "can/bridge.hpp"
#include "platform/local_time.hpp"
#include "tec/files.hpp"
#include "tec/replies.hpp"
#include <kelvane/protocol/tec_commands.hpp>
#include <kelvane/protocol/tec_csv.hpp>

#include <fmt/format.h>

#include <climits>

namespace kelvane::tec {
namespace {

constexpr double warmUpPauseSeconds = 1.0;
// A slot counts as stable after more than this many warm-up passes.
constexpr long long warmUpPassLimit = 10;

std::string printed(const std::optional<std::string>& answer) { return answer ? *answer : describe(Value()); }

std::optional<std::string> ask(const can::Bridge& bridge, const Value& messageId, std::string_view command,
                               std::int32_t slot) {
    return bridge.sendCommandForAnswer(messageId, std::string(command), slot);
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
        answers.temperatures[i] = ask(bridge, messageId, temperatureCommands[i], slot);
    }
    answers.power = ask(bridge, messageId, powerCommand, slot);
    return answers;
}

// The line of a measurement pass and, when every answer came, the sample it shows.
struct Measurement {
    std::string line;
    std::optional<TecSample> sample;
};

Measurement measure(const can::Bridge& bridge, Clock& clock, const SlotTables& tables, std::int32_t slot,
                    const Value& messageId) {
    const Answers answers = askController(bridge, messageId, slot);
    const auto timeStamp = [&] { return formatLocalTime(clock.now(), measurementTimeStamp); };
    if (!answers.usable()) {
        return {missingAnswerLine(timeStamp(), {printed(answers.temperatures[0]), printed(answers.temperatures[1]),
                                                printed(answers.temperatures[2]), printed(answers.temperatures[3]),
                                                printed(answers.power)}),
                std::nullopt};
    }
    const std::string temperatures[4] = {*answers.temperatures[0], *answers.temperatures[1], *answers.temperatures[2],
                                         *answers.temperatures[3]};
    const TecSample sample = parseSample(temperatures, *answers.power);
    return {readingLine(timeStamp(), sample, describe(tables.entry(SlotTables::itemNames, slot))), sample};
}

// Both checks, in this order; the records' lock is taken inside the object lock.
void checkSample(LogSink& log, FailureRecords& records, std::int32_t slot, const TecSample& sample,
                 const std::string& line) {
    if (belowMinimum(sample)) {
        log.write(fmt::format("tecTempRecord Slot{} fail msg:{}", slot, line));
        records.append(line);
    }
    if (sensorsDisagree(sample)) {
        log.write(fmt::format("TesterReporting Slot{} maybe sensor is not normal,msg:{}", slot, line));
        records.append(line);
    }
}

void warmUpPass(const can::Bridge& bridge, const Platform& platform, SlotTables& tables, std::int32_t slot,
                const Value& messageId) {
    const long long passes = integerValue(tables.entry(SlotTables::warmUpPasses, slot));
    tables.setEntry(SlotTables::warmUpPasses, slot, passes < LLONG_MAX ? passes + 1 : passes);
    platform.clock->sleepFor(warmUpPauseSeconds);  // the object lock stays held
    const auto answer = ask(bridge, messageId, temperatureCommands[0], slot);
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
