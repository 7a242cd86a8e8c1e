#include "session_fixture.hpp"

#include "barcode/units.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using kelvane::Value;
using kelvane::testing::FakeRpcClient;
using kelvane::testing::SessionFixture;
using ::testing::Contains;
using ::testing::ElementsAre;

class Barcode : public ::testing::Test {
protected:
    std::shared_ptr<FakeRpcClient> addScanner(int slot) {
        auto scanner = std::make_shared<FakeRpcClient>();
        units.qorClientDic["Unit" + std::to_string(slot)] = scanner;
        return scanner;
    }
    static void answerCheck(FakeRpcClient& scanner, Value cameraId, Value checkSN = 1, Value serial = "SG12345") {
        scanner.answer("barcode.read_reverse_item", cameraId);
        scanner.answer("barcode.read_config", checkSN);
        scanner.answer("barcode.read_config", serial);
    }

    kelvane::CapturingLog log;
    kelvane::Units units{log};
};

TEST_F(Barcode, SecurityCheckStopsAtTheFirstCameraWithTheWrongSlot) {
    units.slotNumber = 3;
    auto first = addScanner(1), second = addScanner(2), third = addScanner(3);
    answerCheck(*first, "slot1");
    answerCheck(*second, "slot1");

    EXPECT_FALSE(units.barcodeSecurityCheck());
    EXPECT_THAT(log.lines(), ElementsAre("***Barcode Security Check***", "Unit1 get cameraID:slot1",
                                         "Unit1 get checkSNConfig:1", "Unit1 get cameraSN:SG12345",
                                         "Unit2 get cameraID:slot1", "--FAIL--Slot2 Camera ID is not right: slot1!"));
    EXPECT_THAT(first->requests(), ElementsAre(R"(barcode.read_reverse_item ["slotID"])",
                                               R"(barcode.read_config ["CheckSN"])", R"(barcode.read_config ["SN"])"));
    EXPECT_TRUE(third->calls().empty());
}

TEST_F(Barcode, SecurityCheckTestsIdentityBySubstringConfigByIntegerAndSerialForSG) {
    using Case = std::tuple<Value, Value, Value, std::string>;  // camera ID, CheckSN, SN, failure line ("": passes)
    units.slotNumber = 1;
    for (const auto& [cameraId, checkSN, serial, failLine] :
         {Case{"slot10", "1", "SG1", ""}, Case{"slot1", "0", "SG1", "--FAIL--Slot1 check SN config is not enable: 0!"},
          Case{"slot1", 1, "sg99", "--FAIL--Slot1 read camera SN fail: sg99!"},
          Case{nullptr, 1, "SG1", "--FAIL--Slot1 Camera ID is not right: (null)!"}}) {
        answerCheck(*addScanner(1), cameraId, checkSN, serial);
        log.clear();
        EXPECT_EQ(units.barcodeSecurityCheck(), failLine.empty()) << cameraId;
        EXPECT_EQ(failLine.empty() ? "" : log.lines().back(), failLine);
    }
}

TEST_F(Barcode, ScanKeepsGoodSlotsAndKeepsReportingAnEarlierError) {
    units.slotNumber = 3;
    auto first = addScanner(1);
    first->answer("barcode.decode", Value("C02ABC"));
    addScanner(2)->fail("barcode.decode", {7, "camera busy"});
    addScanner(3)->answer("barcode.decode", Value("fail"));

    EXPECT_EQ(units.scanBarcode(), (Value{{"Unit1", "C02ABC"}}));
    EXPECT_THAT(log.lines(), ElementsAre("get barcode from scanner.", "Unit1 get barcode from scanner:C02ABC",
                                         "Unit2 scanBarcode: barcode.decode fail; err:camera busy (code 7)",
                                         "Unit2 get barcode from scanner:(null)",
                                         "Unit3 scanBarcode: barcode.decode fail; err:camera busy (code 7)",
                                         "Unit3 get barcode from scanner:fail"));
    EXPECT_THAT(first->requests(), ElementsAre("barcode.decode [5000]"));
}

TEST_F(Barcode, DutSerialHonoursScanSNExactlyAndReturnsErrorsAsText) {
    SessionFixture fixture;  // the session reads "ScanSN" of its topology
    auto session = fixture.connect();
    session->toPology(Value{{"ScanSN", "yes"}});
    EXPECT_TRUE(session->getDutSN("1").is_null());
    EXPECT_THAT(fixture.log->lines(), Contains("Current config don't need  scan SN."));

    auto scanner = addScanner(3);  // no "ScanSN": the unit is scanned
    scanner->answer("barcode.decode", Value("FAIL"));
    EXPECT_EQ(units.getDutSN(Value::object(), "3"), Value("FAIL"));
    EXPECT_THAT(scanner->requests(), ElementsAre("barcode.decode [5000]"));

    const Value yes = {{"ScanSN", "YES"}};
    scanner->fail("barcode.decode", {-32100, "barcode.decode timed out after 3000 ms"});
    EXPECT_EQ(units.getDutSN(yes, "3"), Value("barcode.decode timed out after 3000 ms (code -32100)"));
    EXPECT_TRUE(units.getDutSN(yes, "9").is_null());
    EXPECT_THAT(
        log.lines(),
        ElementsAre("Unit3 get barcode from scanner:FAIL",
                    "scanBarcode: barcode.decode fail; err:barcode.decode timed out after 3000 ms (code -32100)",
                    "Unit9 get barcode from scanner:(null)"));
}
