#include "session_fixture.hpp"

#include "tec/files.hpp"
#include "tec/sampling.hpp"

#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <regex>

using kelvane::Value;
using Lines = std::vector<std::string>;

namespace {

const std::string power = "TEC : 12.00 V, 1.25 A, 15.00 W ,PWM: -35.20% OK";

std::string temperature(const std::string& degrees) { return "TEC temp: " + degrees + " C\r\nOK"; }

class TecSampling : public ::testing::Test {
protected:
    kelvane::testing::VirtualClock clock;
    kelvane::CapturingLog log;
    std::map<std::string, std::optional<std::string>> answers;  // by command
    Lines sent;                                                  // "<id> <command> <slot>"
    Lines csv;                                                   // without the time stamp
    Value stableFlags = Value::array({"YES", "YES"});
    Value warmUpPasses = Value::array({0, 0});
    Value itemNames = Value::array({"NOT SET", "step"});
    Value recordLines = Value::array();
    std::mutex recordMutex, stateMutex;
    kelvane::tec::FailureRecords records{recordLines, recordMutex};
    kelvane::tec::SlotTables tables{stableFlags, warmUpPasses, itemNames, stateMutex};
    kelvane::tec::Sampler sampler{
        [this](const Value& id, const std::string& command, std::int32_t slot) {
            sent.push_back(kelvane::describe(id) + " " + command + " " + std::to_string(slot));
            return answers[command];
        },
        clock, log,
        [this](std::int32_t slot, const std::string& line) {
            csv.push_back(std::to_string(slot) + "|" + afterTimeStamp(line));
        }};

    std::string afterTimeStamp(const std::string& line) {  // the clock's local time, 24-hour
        const auto now = static_cast<std::time_t>(clock.now());
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "%m/%d/%Y %H:%M:%S.000,", std::localtime(&now));
        EXPECT_TRUE(line.starts_with(stamp)) << line;
        return line.substr(line.find(',') + 1);
    }
    void answerSensors(std::vector<std::string> degrees) {
        for (int i = 0; i < 4; ++i) answers["get tec temp:" + std::to_string(i + 1)] = temperature(degrees[i]);
        answers["get tec power"] = power;
    }
    void pass() {
        kelvane::tec::samplingPass(sampler, tables, records, 2, kelvane::tec::canMessageId(2));
    }
};

}  // namespace

TEST_F(TecSampling, MeasurementLineChecksAndFailureRecords) {
    answerSensors({"25.31", "25.31", "25.31", "25.31"});
    pass();
    EXPECT_EQ(csv, Lines{"2|25.31,25.31,25.31,25.31,-35.20,1.25,step\r\n"});
    EXPECT_EQ(sent, (Lines{"2081 get tec temp:1 2", "2081 get tec temp:2 2", "2081 get tec temp:3 2",
                           "2081 get tec temp:4 2", "2081 get tec power 2"}));
    clock.advance(12 * 3600);  // of two time stamps twelve hours apart, one is past noon
    pass();
    EXPECT_TRUE(log.lines().empty());

    // Whether the line fails the minimum temperature and the agreement of sensors 1 to 3.
    const std::tuple<std::vector<std::string>, bool, bool> cases[] = {
        {{"25.00", "25.00", "25.00", "21.49"}, true, false},
        {{"21.50", "21.50", "21.50", "21.50"}, false, false},
        {{"30.0", "26.9", "30.0", "10.0"}, true, true},
        {{"30.0", "30.0", "30.0", "40.0"}, false, false},
        {{"25.0", "28.0", "25.0", "25.0"}, false, false},
        {{"25.0", "25.0", "28.5", "25.0"}, false, true},
        {{"bad", "25.0", "25.0", "25.0"}, true, true},  // an unreadable sensor reads 0.0
        {{"9e99", "25.0", "25.0", "25.0"}, false, true},  // beyond float range: infinity
    };
    for (const auto& [degrees, low, apart] : cases) {
        answerSensors(degrees);
        recordLines = Value::array();
        log.clear();
        pass();
        const std::string line = kelvane::describe(recordLines.empty() ? Value() : recordLines[0]);
        Lines expected;
        if (low) expected.push_back("tecTempRecord Slot2 fail msg:" + line);
        if (apart) expected.push_back("TesterReporting Slot2 maybe sensor is not normal,msg:" + line);
        EXPECT_EQ(log.lines(), expected) << csv.back();
        EXPECT_EQ(recordLines, Value(Lines(expected.size(), line))) << csv.back();
    }
    EXPECT_EQ(csv.back(), "2|inf,25.00,25.00,25.00,-35.20,1.25,step\r\n");

    const Value snapshot = records.snapshot();
    recordLines.push_back("later");
    EXPECT_EQ(snapshot.size(), 1u);
    recordLines = nullptr;  // the host dropped the array: nothing is kept, nothing breaks
    records.append("x");
    EXPECT_EQ(records.snapshot(), Value::array());

    answerSensors({"25.00", "25.00", "25.00", "25.00"});
    answers["get tec power"] = "TEC : 12.00 V, 1.25 A, 15.00 W ,PWM: -35.20% FAIL";
    pass();
    EXPECT_EQ(csv.back(), "2|25.00,25.00,25.00,25.00,0.00,1.25,step\r\n");
}

TEST_F(TecSampling, MissingAnswersAreNamedAndOnDemandReadingsAreOnlyReturned) {
    answerSensors({"10.0", "10.0", "10.0", "10.0"});  // would fail a check if one were made
    answers["get tec temp:3"] = "";
    answers["get tec power"] = std::nullopt;
    pass();
    const std::string t = temperature("10.0");
    EXPECT_EQ(csv, Lines{"2|" + t + "," + t + ",," + t + ",(null) get null value.\r\n"});
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(recordLines.empty());

    // A reading on demand is a measurement even while the slot warms up, and counts no pass.
    answerSensors({"10.0", "25.0", "25.0", "25.0"});
    sent.clear();
    itemNames = nullptr;
    stableFlags[1] = "NO";
    warmUpPasses[1] = 4;
    EXPECT_EQ(afterTimeStamp(kelvane::tec::readingOnDemand(sampler, tables, 2)),
              "10.00,25.00,25.00,25.00,-35.20,1.25,(null)\r\n");
    EXPECT_EQ(sent.front(), "2081 get tec temp:1 2");
    EXPECT_EQ(Value::array({stableFlags[1], warmUpPasses[1]}), Value::array({"NO", 4}));
    EXPECT_EQ(csv.size(), 1u);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(recordLines.empty());
}

TEST_F(TecSampling, WarmUpTakesElevenPassesThenMeasures) {
    answerSensors({"25.0", "25.0", "25.0", "25.0"});
    stableFlags[1] = "NO";
    for (int i = 1; i <= 11; ++i) {
        pass();
        EXPECT_EQ(warmUpPasses[1], i == 11 ? 0 : i);
    }
    EXPECT_EQ(stableFlags[1], "YES");
    EXPECT_EQ(sent, Lines(11, "2081 get tec temp:1 2"));
    EXPECT_EQ(clock.sleeps(), std::vector<double>(11, 1.0));
    EXPECT_TRUE(csv.empty());
    Lines expected(11, "Slot2 ntc1:" + temperature("25.0"));
    expected.push_back("Slot2 TEC temp stable");
    EXPECT_EQ(log.lines(), expected);
    pass();
    EXPECT_EQ(csv.size(), 1u);

    // A count left above 0 carries over into the next warm-up; a pass without a reply counts.
    stableFlags[1] = "NO";
    warmUpPasses[1] = 5;
    answers["get tec temp:1"] = std::nullopt;
    log.clear();
    for (int i = 0; i < 6; ++i) pass();
    EXPECT_EQ(stableFlags[1], "YES");
    expected.assign(6, "Slot2 ntc1:(null)");
    expected.push_back("Slot2 TEC temp stable");
    EXPECT_EQ(log.lines(), expected);

    // Without a counter table the warm-up never ends; without a flag table it never starts.
    warmUpPasses = nullptr;
    stableFlags[1] = "NO";
    for (int i = 0; i < 20; ++i) pass();
    EXPECT_EQ(stableFlags[1], "NO");
    stableFlags = nullptr;
    pass();
    EXPECT_EQ(csv.size(), 2u);
}

TEST(TecFiles, LinesAreAppendedToTheSlotsFilesAsAscii) {
    kelvane::testing::SessionFixture fixture;
    const kelvane::Platform platform = fixture.platform();
    const Value identifier = "Fixture3";
    const kelvane::tec::TecFiles files{platform, identifier};
    const auto folder = fixture.root.path() / "Users/stnuser/Library/Logs/Korva/active/group2-slot2/user";
    using kelvane::testing::fileText;

    files.appendCsv(2, "a\r\n");  // no folder: lost without a message
    EXPECT_FALSE(std::filesystem::exists(folder));
    std::filesystem::create_directories(folder);
    files.appendCsv(2, "a\r\n");
    files.appendCsv(2, "25\xc2\xb0" "C\r\n");
    files.appendCsv(2, "b\r\n");
    EXPECT_EQ(fileText(folder / "TecTemp_Fixture3_Unit2.csv"), "a\r\nb\r\n");

    // 30 December 2024 lies in week 1 of 2025: the week-based year shows.
    fixture.clock->advance(1'735'560'000.5 - fixture.clock->now());
    files.appendMonitorLine(2, "running");
    EXPECT_TRUE(std::regex_match(fileText(folder / "TecControlMonitor_Fixture3_Unit2.log"),
                                 std::regex("2025-12-30 \\d\\d:\\d\\d:\\d\\d:5000:    running\r\n")));
    EXPECT_TRUE(fixture.log->lines().empty());

    // A file that cannot be opened (a folder in its place) loses the line quietly; a write that
    // fails once it is open (a full disk) is logged. The host's reading comes back all the same.
    using kelvane::tec::TecFiles;
    for (auto [name, write, message] :
         {std::tuple{"TecTemp_Fixture3_Unit2.csv", &TecFiles::appendCsv, "save TecTemplog exception !"},
          {"TecControlMonitor_Fixture3_Unit2.log", &TecFiles::appendMonitorLine, "save TecControlMonitor exception !"}}) {
        std::filesystem::remove(folder / name);
        std::filesystem::create_directory(folder / name);
        (files.*write)(2, "c\r\n");
        EXPECT_TRUE(fixture.log->lines().empty()) << name;
        std::filesystem::remove(folder / name);
        std::filesystem::create_symlink("/dev/full", folder / name);
        (files.*write)(2, "c\r\n");
        EXPECT_EQ(fixture.log->lines(), Lines{message});
        fixture.log->clear();
    }
    auto session = fixture.connect();
    fixture.controller->answer("can.send", Value("done"));
    fixture.controller->answer("can.recv", Value{{"data", {4, 'O', 'K', 3}}});
    EXPECT_TRUE(session->tecTempRecord2(2).ends_with(",0.00,0.00,0.00,0.00,0.00,0.00,(null)\r\n"));
    const Lines lines = fixture.log->lines();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "save TecControlMonitor exception !"), lines.end());

    const std::string active = "/Users/stnuser/Library/Logs/Korva/active/";
    EXPECT_EQ(kelvane::tec::monitorLogPath(Value("Fixture1"), 4),
              active + "group0-slot4/user/TecControlMonitor_Fixture1_Unit4.log");
    EXPECT_EQ(kelvane::tec::csvPath(Value(1), 2), active + "group-1-slot2/user/TecTemp_1_Unit2.csv");
}
