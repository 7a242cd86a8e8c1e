#include "tec/sampling.hpp"

#include "platform/local_time.hpp"
#include "tec/replies.hpp"

#include <kelvane/protocol/can_bus.hpp>

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

Answers askController(const Sampler& sampler, const Value& messageId, std::int32_t slot) {
    Answers answers;
    for (int i = 0; i < 4; ++i) {
        answers.temperatures[i] = sampler.send(messageId, temperatureCommands[i], slot);
    }
    answers.power = sampler.send(messageId, powerCommand, slot);
    return answers;
}

std::string timeStamp(const Sampler& sampler) {
    return formatLocalTime(sampler.clock.now(), lineTimeStamp);
}

// The line of a measurement pass and, when every answer came, the sample it shows.
struct Measurement {
    std::string line;
    std::optional<TecSample> sample;
};

Measurement measure(const Sampler& sampler, const Value& messageId, const SlotTables& tables,
                    std::int32_t slot) {
    const Answers answers = askController(sampler, messageId, slot);
    if (!answers.usable()) {
        return {fmt::format("{},{},{},{},{},{} get null value.\r\n", timeStamp(sampler),
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
        "{},{:.2f},{:.2f},{:.2f},{:.2f},{:.2f},{:.2f},{}\r\n", timeStamp(sampler),
        value(sample.sensors[0]), value(sample.sensors[1]), value(sample.sensors[2]),
        value(sample.sensors[3]), value(sample.pwm), value(sample.current),
        describe(tables.itemName(slot)));
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

void checkSample(const Sampler& sampler, FailureRecords& records, std::int32_t slot,
                 const TecSample& sample, const std::string& line) {
    if (belowMinimum(sample)) {
        sampler.log.write(fmt::format("tecTempRecord Slot{} fail msg:{}", slot, line));
        records.append(line);
    }
    if (sensorsDisagree(sample)) {
        sampler.log.write(
            fmt::format("TesterReporting Slot{} maybe sensor is not normal,msg:{}", slot, line));
        records.append(line);
    }
}

void warmUpPass(const Sampler& sampler, SlotTables& tables, std::int32_t slot,
                const Value& messageId) {
    const long long passes = integerValue(tables.warmUpPasses(slot));
    tables.setWarmUpPasses(slot, passes < LLONG_MAX ? passes + 1 : passes);
    sampler.clock.sleepFor(warmUpPauseSeconds);
    const auto answer = sampler.send(messageId, temperatureCommands[0], slot);
    sampler.log.write(fmt::format("Slot{} ntc1:{}", slot, printed(answer)));
    // Read back: a counter table the host has not set up never reaches the limit.
    if (integerValue(tables.warmUpPasses(slot)) > warmUpPassLimit) {
        tables.setStableFlag(slot, "YES");
        tables.setWarmUpPasses(slot, 0);
        sampler.log.write(fmt::format("Slot{} TEC temp stable", slot));
    }
}

}  // namespace

Value canMessageId(std::int32_t slot) {
    return Value(static_cast<std::uint32_t>(can::tecMessageId(slot)));
}

void samplingPass(const Sampler& sampler, SlotTables& tables, FailureRecords& records,
                  std::int32_t slot, const Value& messageId) {
    if (isText(tables.stableFlag(slot), "NO")) {
        warmUpPass(sampler, tables, slot, messageId);
        return;
    }
    const Measurement measurement = measure(sampler, messageId, tables, slot);
    sampler.saveCsv(slot, measurement.line);
    if (measurement.sample) {
        checkSample(sampler, records, slot, *measurement.sample, measurement.line);
    }
}

std::string readingOnDemand(const Sampler& sampler, const SlotTables& tables, std::int32_t slot) {
    return measure(sampler, canMessageId(slot), tables, slot).line;
}

}  // namespace kelvane::tec
