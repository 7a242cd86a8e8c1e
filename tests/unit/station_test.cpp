#include "session_fixture.hpp"

#include "barcode/units.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <tuple>

using kelvane::Value;
using kelvane::testing::FakeRpcClient;
using kelvane::testing::SessionFixture;
using ::testing::ElementsAre;

class Station : public ::testing::Test {
protected:
    std::filesystem::path stationFile() const {
        return fixture.root.path() / "vault/data_collection/test_station_config/zt_station_info.json";
    }
    std::filesystem::path fixtureLog() const { return fixture.root.path() / "vault/Korva/Fixture.log"; }
    void writeStationFile(const std::string& text) {
        std::filesystem::create_directories(stationFile().parent_path());
        std::ofstream(stationFile(), std::ios::binary) << text;
    }

    SessionFixture fixture;
    std::shared_ptr<kelvane::FixtureControl> session = fixture.connect();
};

TEST_F(Station, InfoGivesTextsAndNumbersAndEmptyTextForEverythingElse) {
    EXPECT_EQ(session->GetZtJsonInfo("station", "id"), "");  // no file

    writeStationFile(R"({"station": {"id": "ZT-7", "line": 12, "gain": 1.5, "list": [1],
                        "nothing": null, "flag": true}, "flat": 3})");
    using Row = std::tuple<const char*, const char*, const char*>;  // section, key, text
    for (const auto& [section, key, text] :
         {Row{"station", "id", "ZT-7"}, Row{"station", "line", "12"}, Row{"station", "gain", "1.5"},
          Row{"station", "flag", "1"}, Row{"station", "list", ""}, Row{"station", "nothing", ""},
          Row{"station", "missing", ""}, Row{"missing", "id", ""}, Row{"flat", "id", ""}}) {
        EXPECT_EQ(session->GetZtJsonInfo(section, key), text) << section << "." << key;
    }

    for (const char* broken : {"{", "[1, 2]", "", "\xff\xfe{}"}) {
        writeStationFile(broken);
        EXPECT_EQ(session->GetZtJsonInfo("station", "id"), "") << broken;
    }
}

TEST_F(Station, FixtureLogAppendsAsciiLinesAndDropsOthersWhole) {
    session->saveSamplelog("no folder yet");
    EXPECT_FALSE(std::filesystem::exists(fixtureLog()));
    EXPECT_TRUE(fixture.log->lines().empty());

    std::filesystem::create_directories(fixtureLog().parent_path());
    session->saveSamplelog("first");
    session->saveSamplelog("caf\xc3\xa9");
    session->saveSamplelog("second");
    EXPECT_EQ(kelvane::testing::fileText(fixtureLog()), "first\r\nsecond\r\n");

    // A log that cannot be opened (a folder in its place) loses the lines quietly; a write that
    // fails once it is open (a full disk) is logged, once for each of the address and the port.
    // The session connects either way.
    for (auto [fullDisk, messages] : {std::pair{false, 0}, {true, 2}}) {
        std::filesystem::remove(fixtureLog());
        if (fullDisk)
            std::filesystem::create_symlink("/dev/full", fixtureLog());
        else
            std::filesystem::create_directory(fixtureLog());
        fixture.log->clear();
        auto again = kelvane::FixtureControl::initWithIP(SessionFixture::topology(), fixture.platform());
        EXPECT_EQ(again ? again->getConnectFlag() : 0, 1);
        const auto lines = fixture.log->lines();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "save datalogger exception !"), messages);
    }
}

TEST_F(Station, EepromReadGoesThroughTheBaseBoardOfTheFirstUnit) {
    EXPECT_TRUE(session->getFixtureIDFromEEPROMWithTimeout(2000).is_null());
    EXPECT_THAT(fixture.log->lines(), ElementsAre("SIBBoardType is: TAVRIN"));

    kelvane::CapturingLog log;  // a unit board's client, which no session has
    kelvane::Units units{log};
    auto board = std::make_shared<FakeRpcClient>();
    units.qorClientDic["Unit1"] = board;
    board->answer("base_board.lock_read_eeprom_string", Value("FX-0042"));
    EXPECT_EQ(units.getFixtureIDFromEEPROMWithTimeout(2000), Value("FX-0042"));
    auto call = board->calls().front();
    EXPECT_EQ(Value::array({call.args.size(), call.args[1], call.args[2], call.kwargs}),
              Value::array({3, 32, 30, Value{{"timeout_ms", 2000}}}));

    board->fail("base_board.lock_read_eeprom_string", {3, "locked"});
    log.clear();
    EXPECT_TRUE(units.getFixtureIDFromEEPROMWithTimeout(2000).is_null());
    EXPECT_THAT(log.lines(),
                ElementsAre("SIBBoardType is: TAVRIN", "Failed to read eeprom from SIB board; err=locked (code 3)"));
}
