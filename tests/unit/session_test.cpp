#include "session_fixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using kelvane::Value;
using kelvane::testing::fileText;
using kelvane::testing::SessionFixture;
using ::testing::ElementsAre;

TEST(Session, CreationProbesTheControllerLogsEachStepAndRecordsTheAddress) {
    SessionFixture fixture;
    std::filesystem::create_directories(fixture.root.path() / "vault/Korva");
    auto session = kelvane::FixtureControl::initWithIP(SessionFixture::topology(), fixture.platform());

    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->getConnectFlag(), 1);
    EXPECT_THAT(fixture.controller->requests(), ElementsAre("server.mode"));
    EXPECT_THAT(fixture.log->lines(),
                ElementsAre("********self.toPology  {\n    FixtureIP =     {\n        ip = \"127.0.0.1\";\n"
                            "        port = 7805;\n    };\n    identifier = Fixture3;\n}",
                            "Connect to {\n    ip = \"127.0.0.1\";\n    port = 7805;\n}",
                            "ipAddress 'fixtureIP': <{\n    ip = \"127.0.0.1\";\n    port = 7805;\n}>",
                            "Fixture3 Connecting to RPC server 127.0.0.1:7805...", "RPC server.mode: normal...",
                            "================Connect Fixture seccussful================"));
    EXPECT_EQ(fileText(fixture.root.path() / "vault/Korva/Fixture.log"), "127.0.0.1\r\n7805\r\n");
    EXPECT_EQ(session->tecRecordArr(), Value::array());
}

// A port outside 1..65535 is refused at once, without a client.
TEST(Session, NoAnswerToServerModeOrAPortOutsideOneTo65535GivesNoSession) {
    for (Value port : {Value(7805), Value(0), Value(65536), Value(-1), Value("x")}) {
        SessionFixture fixture;
        fixture.controller->forget("server.mode");
        fixture.controller->fail("server.mode", {-32100, "server.mode timed out after 3000 ms"});
        auto platform = fixture.platform();
        bool clientMade = false;
        platform.connect = [&](const std::string&, std::uint32_t) { return clientMade = true, fixture.controller; };
        Value topology = SessionFixture::topology();
        topology["FixtureIP"]["port"] = port;

        EXPECT_EQ(kelvane::FixtureControl::initWithIP(topology, platform), nullptr) << port;
        EXPECT_EQ(clientMade, port == 7805) << port;
        auto lines = fixture.log->lines();
        ASSERT_GE(lines.size(), 3u);
        EXPECT_THAT(std::vector(lines.end() - 3, lines.end()),
                    ElementsAre("RPC server.mode: (null)...", "Error Failed to connect fxiture",
                                "================Connect Fixture fail================"));
    }
}

// An absent address text writes nothing to the fixture log, the port line is still written; a
// transport that makes no client fails the connection like a silent controller.
TEST(Session, MissingOrMalformedAddressOrTransportNeverCrashes) {
    for (Value topology : {Value(), Value::object(), Value{{"FixtureIP", "not a dictionary"}},
                           Value{{"FixtureIP", {{"ip", 5}, {"port", "x"}}}}, Value{{"FixtureIP", {{"port", 7805}}}},
                           SessionFixture::topology()}) {
        SessionFixture fixture;
        std::filesystem::create_directories(fixture.root.path() / "vault/Korva");
        auto platform = fixture.platform();
        platform.connect = [](const std::string&, std::uint32_t) { return nullptr; };
        EXPECT_EQ(kelvane::FixtureControl::initWithIP(topology, platform), nullptr) << topology;
        auto fixtureLog = fileText(fixture.root.path() / "vault/Korva/Fixture.log");
        EXPECT_TRUE(fixtureLog.ends_with("\r\n") && fixtureLog.find("(null)") == std::string::npos)
            << topology << " wrote " << fixtureLog;
    }
}

TEST(Session, ScannerCheckRunsOnlyWhenScanSNReadsYesInAnyCase) {
    for (Value scanSN : {Value("yes"), Value("YES"), Value("NO"), Value("Y"), Value()}) {
        const bool runs = scanSN == "yes" || scanSN == "YES";
        SessionFixture fixture;
        auto session = kelvane::FixtureControl::initWithIP(SessionFixture::topology(scanSN), fixture.platform());
        auto lines = fixture.log->lines();
        EXPECT_EQ(std::find(lines.begin(), lines.end(), "***Barcode Security Check***") != lines.end(), runs) << scanSN;
        EXPECT_NE(session, nullptr) << "no slots: the check passes without a call";
    }
}

TEST(Session, InitialFixtureNeedsDoneInTheReply) {
    SessionFixture fixture;
    auto session = fixture.connect();
    for (Value reply : {Value("init done\r\n"), Value("DONE"), Value()})
        fixture.controller->answer("vantrel.fixture_init", reply);
    const bool first = session->initialFixture(), second = session->initialFixture();
    EXPECT_EQ(std::tuple(first, second, session->initialFixture()), std::tuple(true, false, false));
    EXPECT_EQ(fixture.controller->requests(), std::vector<std::string>(3, "vantrel.fixture_init"));
}
