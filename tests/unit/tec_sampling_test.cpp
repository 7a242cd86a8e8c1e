#include "session_fixture.hpp"

#include "tec/files.hpp"

#include <fmt/chrono.h>
#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <regex>

using kelvane::Value;
using kelvane::tec::TecFiles;
using kelvane::testing::fileText;
using Lines = std::vector<std::string>;

namespace {

std::string temperature(const std::string& degrees) { return "TEC temp: " + degrees + " C\r\nOK"; }

// The TEC controllers behind the controller board: a command, reassembled from the frames
// "can.send" carries, is answered from `answers` in frames that "can.recv" hands out (the text
// and its closing 3, seven bytes a frame); a command without an answer gets none.
struct TecBoard final : kelvane::RpcClient {
    std::map<std::string, std::string> answers;
    Lines sent;  // "<message id> <command>"
    std::string command, unread;

    Value call(const std::string& method, const Value& args, const Value&, kelvane::RpcErrorSlot) override {
        if (method == "can.recv") {
            if (unread.empty()) return Value::object();
            Value frame = Value::array({0x21});
            for (unsigned char c : unread.substr(0, 7)) frame.push_back(c);
            unread.erase(0, 7);
            return {{"data", frame}};
        }
        for (std::size_t i = args[1][0] == 0x10 ? 2 : 1; i < args[1].size(); ++i)
            command += char(args[1][i].get<int>());
        if (command.back() != '\x03') return "done";
        command.pop_back();
        sent.push_back(kelvane::describe(args[0]) + " " + command);
        unread = answers.contains(command) ? answers[command] + '\x03' : "";
        command.clear();
        return "done";
    }
};

// The process log's lines of the sampling itself. A failure is logged only once its line is in
// the CSV file.
struct SamplingLog final : kelvane::LogSink {
    explicit SamplingLog(std::filesystem::path file) : csv(std::move(file)) {}
    std::filesystem::path csv;
    Lines own;
    void write(std::string_view line) override {
        const auto at = line.find("msg:");
        EXPECT_TRUE(at == line.npos || fileText(csv).ends_with(line.substr(at + 4))) << line;
        if (std::regex_search(line.begin(), line.end(), std::regex("^(tecTempRecord|TesterReporting|Slot2)")))
            own.emplace_back(line);
    }
};

class TecSampling : public ::testing::Test {
protected:
    TecSampling() {
        session->fixtureControlClient(board);
        session->tecTempTimes(Value::array({0, 0}));
        session->tecRecordItemNameArray(Value::array({"NOT SET", "step"}));
    }

    // The line after its time stamp, which is the clock's local time, 24-hour, with milliseconds.
    std::string afterTimeStamp(const std::string& line) {
        const double now = fixture.clock->now();
        const auto seconds = static_cast<std::time_t>(now);
        EXPECT_EQ(line.substr(0, 24), fmt::format("{:%m/%d/%Y %H:%M:%S}.{:03},", fmt::localtime(seconds),
                                                  int((now - double(seconds)) * 1000)));
        return line.substr(24);
    }
    std::string written() {  // what the passes appended to the slot's CSV file since the last look
        const std::string text = fileText(folder / "TecTemp_Fixture3_Unit2.csv");
        return text.substr(std::exchange(csvSeen, text.size()));
    }
    Lines samplingLog() { return std::exchange(log->own, {}); }
    void answerSensors(std::vector<std::string> degrees) {
        for (int i = 0; i < 4; ++i) board->answers["get tec temp:" + std::to_string(i + 1)] = temperature(degrees[i]);
        board->answers["get tec power"] = "TEC : 12.00 V, 1.25 A, 15.00 W ,PWM: -35.20% OK";
    }
    void pass() { session->tecTempRecord(2, Value(2081)); }

    kelvane::testing::SessionFixture fixture;
    const std::filesystem::path folder = fixture.slotFolder(2);
    std::shared_ptr<SamplingLog> log = std::make_shared<SamplingLog>(folder / "TecTemp_Fixture3_Unit2.csv");
    std::shared_ptr<kelvane::FixtureControl> session = [this] {
        auto platform = fixture.platform();
        platform.log = log;
        return kelvane::FixtureControl::initWithIP(fixture.topology(), platform);
    }();
    std::shared_ptr<TecBoard> board = std::make_shared<TecBoard>();
    std::size_t csvSeen = 0;
};

}  // namespace

TEST_F(TecSampling, MeasurementLineChecksAndFailureRecords) {
    answerSensors({"25.31", "25.31", "25.31", "25.31"});
    pass();
    EXPECT_EQ(afterTimeStamp(written()), "25.31,25.31,25.31,25.31,-35.20,1.25,step\r\n");
    EXPECT_EQ(board->sent, (Lines{"2081 get tec temp:1", "2081 get tec temp:2", "2081 get tec temp:3",
                                  "2081 get tec temp:4", "2081 get tec power"}));
    EXPECT_TRUE(samplingLog().empty());

    // Whether the line fails the minimum temperature and the agreement of sensors 1 to 3.
    const std::tuple<std::vector<std::string>, bool, bool> cases[] = {
        {{"25.00", "25.00", "25.00", "21.49"}, true, false}, {{"21.50", "21.50", "21.50", "21.50"}, false, false},
        {{"30.0", "26.9", "30.0", "10.0"}, true, true},      {{"30.0", "30.0", "30.0", "40.0"}, false, false},
        {{"25.0", "28.0", "25.0", "25.0"}, false, false},    {{"25.0", "25.0", "28.5", "25.0"}, false, true},
        {{"bad", "25.0", "25.0", "25.0"}, true, true},    // an unreadable sensor reads 0.0
        {{"9e99", "25.0", "25.0", "25.0"}, false, true},  // beyond float range: infinity
    };
    std::string line;
    for (const auto& [degrees, low, apart] : cases) {
        answerSensors(degrees);
        session->tecRecordArr(Value::array());
        pass();
        line = written();
        Lines expected;
        if (low) expected.push_back("tecTempRecord Slot2 fail msg:" + line);
        if (apart) expected.push_back("TesterReporting Slot2 maybe sensor is not normal,msg:" + line);
        EXPECT_EQ(samplingLog(), expected) << line;
        EXPECT_EQ(session->getTecRecord(0), Value(Lines(expected.size(), line))) << line;
    }
    EXPECT_EQ(afterTimeStamp(line), "inf,25.00,25.00,25.00,-35.20,1.25,step\r\n");

    const Value snapshot = session->getTecRecord(2);
    pass();
    EXPECT_EQ(std::pair(snapshot.size(), session->getTecRecord(2).size()), std::pair(1ul, 2ul));
    session->tecRecordArr(nullptr);  // the host dropped the array: nothing is kept, nothing breaks
    pass();
    EXPECT_EQ(std::pair(session->tecRecordArr(), session->getTecRecord(2)), std::pair(Value(), Value::array()));

    answerSensors({"25.00", "25.00", "25.00", "25.00"});
    board->answers["get tec power"] = "TEC : 12.00 V, 1.25 A, 15.00 W ,PWM: -35.20% FAIL\r\nOK";
    written();
    pass();
    EXPECT_EQ(afterTimeStamp(written()), "25.00,25.00,25.00,25.00,0.00,1.25,step\r\n");
}

TEST_F(TecSampling, MissingAnswersAreNamedAndOnDemandReadingsAreOnlyReturned) {
    answerSensors({"10.0", "10.0", "10.0", "10.0"});  // would fail a check if one were made
    board->answers.erase("get tec temp:3");
    board->answers.erase("get tec power");
    pass();
    const std::string t = temperature("10.0") + '\x03';  // as the answer came, its 3 included
    EXPECT_EQ(afterTimeStamp(written()), t + "," + t + ",(null)," + t + ",(null) get null value.\r\n");
    EXPECT_TRUE(samplingLog().empty() && session->getTecRecord(2).empty());

    // A reading on demand is a measurement even while the slot warms up, and counts no pass.
    answerSensors({"10.0", "25.0", "25.0", "25.0"});
    board->sent.clear();
    session->tecRecordItemNameArray(nullptr);
    session->tecTempStableFlag(Value::array({"YES", "NO"}));
    session->tecTempTimes(Value::array({0, 4}));
    EXPECT_EQ(afterTimeStamp(session->tecTempRecord2(2)), "10.00,25.00,25.00,25.00,-35.20,1.25,(null)\r\n");
    EXPECT_EQ(board->sent.front(), "2081 get tec temp:1");
    EXPECT_EQ(Value::array({session->tecTempStableFlag()[1], session->tecTempTimes()[1]}), Value::array({"NO", 4}));
    EXPECT_TRUE(written().empty() && samplingLog().empty() && session->getTecRecord(2).empty());
}

TEST_F(TecSampling, WarmUpTakesElevenPassesThenMeasures) {
    answerSensors({"25.0", "25.0", "25.0", "25.0"});
    session->tecTempStableFlag(Value::array({"YES", "NO"}));
    for (int i = 1; i <= 11; ++i) {
        pass();
        EXPECT_EQ(session->tecTempTimes()[1], i == 11 ? 0 : i);
    }
    EXPECT_EQ(session->tecTempStableFlag()[1], "YES");
    EXPECT_EQ(board->sent, Lines(11, "2081 get tec temp:1"));
    std::vector<double> sleeps;  // each pass: the warm-up pause, then the pause after its receive
    for (int i = 0; i < 11; ++i) sleeps.insert(sleeps.end(), {1.0, 0.1});
    EXPECT_EQ(fixture.clock->sleeps(), sleeps);
    EXPECT_TRUE(written().empty());
    Lines expected(11, "Slot2 ntc1:" + temperature("25.0") + '\x03');
    expected.push_back("Slot2 TEC temp stable");
    EXPECT_EQ(samplingLog(), expected);
    pass();
    EXPECT_FALSE(written().empty());

    // A count left above 0 carries over into the next warm-up; a pass without an answer counts.
    session->tecTempStableFlag(Value::array({"YES", "NO"}));
    session->tecTempTimes(Value::array({0, 5}));
    board->answers.erase("get tec temp:1");
    for (int i = 0; i < 6; ++i) pass();
    EXPECT_EQ(session->tecTempStableFlag()[1], "YES");
    expected.assign(6, "Slot2 ntc1:(null)");
    expected.push_back("Slot2 TEC temp stable");
    EXPECT_EQ(samplingLog(), expected);

    // Without a counter table the warm-up never ends; without a flag table it never starts.
    session->tecTempTimes(nullptr);
    session->tecTempStableFlag(Value::array({"YES", "NO"}));
    for (int i = 0; i < 20; ++i) pass();
    EXPECT_EQ(session->tecTempStableFlag()[1], "NO");
    EXPECT_TRUE(written().empty());
    session->tecTempStableFlag(nullptr);
    pass();
    EXPECT_FALSE(written().empty());
}
TEST(TecFiles, LinesAreAppendedToTheSlotsFilesAsAscii) {
    kelvane::testing::SessionFixture fixture;
    const kelvane::Platform platform = fixture.platform();
    const Value identifier = "Fixture3";
    const TecFiles files{platform, identifier};
    const auto folder = fixture.slotFolder(5);  // not made: the fixture makes those of slots 1 to 4

    files.appendCsv(5, "a\r\n");  // no folder: lost without a message
    EXPECT_FALSE(std::filesystem::exists(folder));
    std::filesystem::create_directories(folder);
    files.appendCsv(5, "a\r\n");
    files.appendCsv(5, "25\u00b0C\r\n");
    files.appendCsv(5, "b\r\n");
    EXPECT_EQ(fileText(folder / "TecTemp_Fixture3_Unit5.csv"), "a\r\nb\r\n");

    // 30 December 2024 lies in week 1 of 2025: the week-based year shows.
    fixture.clock->advance(1'735'560'000.5 - fixture.clock->now());
    files.appendMonitorLine(5, "running");
    EXPECT_TRUE(std::regex_match(fileText(folder / "TecControlMonitor_Fixture3_Unit5.log"),
                                 std::regex("2025-12-30 \\d\\d:\\d\\d:\\d\\d:5000:    running\r\n")));
    EXPECT_TRUE(fixture.log->lines().empty());

    // A write that fails once the file is open (a full disk) is logged with the file's own line.
    for (auto [name, write, message] :
         {std::tuple{"TecTemp_Fixture3_Unit5.csv", &TecFiles::appendCsv, "save TecTemplog exception !"},
          {"TecControlMonitor_Fixture3_Unit5.log", &TecFiles::appendMonitorLine,
           "save TecControlMonitor exception !"}}) {
        std::filesystem::remove(folder / name);
        std::filesystem::create_symlink("/dev/full", folder / name);
        (files.*write)(5, "c\r\n");
        EXPECT_EQ(fixture.log->lines(), Lines{message});
        fixture.log->clear();
    }
    EXPECT_EQ(kelvane::tec::csvPath(Value(1), 2),  // no group number in the identifier: group -1
              "/Users/stnuser/Library/Logs/Korva/active/group-1-slot2/user/TecTemp_1_Unit2.csv");
}
