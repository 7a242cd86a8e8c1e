#include "session_fixture.hpp"

#include "can/bridge.hpp"

#include <fmt/format.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <regex>

using kelvane::Value;
using kelvane::can::Frame;
using Lines = std::vector<std::string>;

namespace {

class CanBridge : public ::testing::Test {
protected:
    static Value received(Value data) { return Value{{"data", std::move(data)}}; }
    // "<method> <args>" per call.
    Lines journal() const {
        Lines lines;
        for (const auto& call : fixture.controller->calls()) lines.push_back(call.method + " " + call.args.dump());
        return lines;
    }
    // The slot's TEC monitor log without its time stamps; the log starts afresh.
    std::string monitor(int slot) {
        const auto path = fixture.slotFolder(slot) / fmt::format("TecControlMonitor_Fixture3_Unit{}.log", slot);
        const std::string text = kelvane::testing::fileText(path);
        std::filesystem::remove(path);
        return std::regex_replace(text, std::regex("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{4}:    "), "");
    }
    // The controller board gets 3000 ms for every CAN call.
    void TearDown() override {
        for (const auto& call : fixture.controller->calls()) EXPECT_EQ(call.kwargs, Value({{"timeout_ms", 3000}}));
    }

    kelvane::testing::SessionFixture fixture;
    const kelvane::Platform platform = fixture.platform();
    std::shared_ptr<kelvane::testing::FakeRpcClient>& board = fixture.controller;
    const kelvane::can::Bridge bridge{platform, board, Value("Fixture3")};
    kelvane::CapturingLog& log = *fixture.log;
};

// "<first byte in hex>/<size>" per frame, and the payload the controller reassembles.
std::pair<std::string, std::string> shapeAndPayload(const std::vector<Frame>& frames) {
    std::string shape, payload;
    for (const auto& frame : frames) {
        shape += (shape.empty() ? "" : " ") + fmt::format("{:x}/{}", frame[0], frame.size());
        for (std::size_t i = frame[0] == 0x10 ? 2 : 1; i < frame.size(); ++i) payload += char(frame[i]);
    }
    return {shape, payload};
}

}  // namespace

TEST_F(CanBridge, CommandsAreCutIntoTheShapesTheControllersExpect) {
    EXPECT_EQ(bridge.framesForCommand("abc", 3), (std::vector<Frame>{{4, 0x61, 0x62, 0x63, 3}}));
    EXPECT_EQ(monitor(3),
              "handleCanCMD: abc\r\ncommand array will send: (\n        (\n        4,\n"
              "        97,\n        98,\n        99,\n        3\n    )\n)\r\n");
    EXPECT_EQ(log.lines(), (Lines{"hexStr: 616263", "tmpStr: 61626303",
                                  "decimalStr: (\n    4,\n    97,\n    98,\n    99,\n    3\n)"}));

    // The last frame is never padded nor cut: it may carry up to 10 bytes.
    const std::size_t lengths[] = {0, 6, 7, 13, 20, 21, 28};
    const std::string shapes[] = {
        "1/2", "7/8", "10/8 21/3", "10/8 21/8 22/2", "10/8 21/8 22/9", "10/8 21/8 21/8 22/3", "10/8 21/8 21/8 22/10"};
    for (int i = 0; i < 7; ++i) {
        const std::string command(lengths[i], 'x');
        EXPECT_EQ(shapeAndPayload(bridge.framesForCommand(command, 1)), std::pair(shapes[i], command + "\x03")) << i;
    }
    log.clear();
    EXPECT_TRUE(bridge.framesForCommand(std::string(29, 'x'), 2).empty());
    EXPECT_EQ(log.lines().size(), 2u);  // hexStr and tmpStr, no frame converted
    EXPECT_TRUE(monitor(2).ends_with("\r\ncommand array will send: (\n)\r\n"));
}

TEST_F(CanBridge, AnswersAreReassembledFromFramesUntilTheTerminator) {
    board->answer("can.recv", received({4, 0x4F, 0x4B, 0x0D, 3}));
    EXPECT_EQ(bridge.receiveAnswer(2), "OK\r\x03");
    EXPECT_EQ(log.lines(), (Lines{"4", "79", "75", "13", "3"}));
    EXPECT_EQ(monitor(2), "rawdata [0]: (\n    4,\n    79,\n    75,\n    13,\n    3\n)\r\nresultStr [0]: OK\r\x03\r\n");

    // A first frame skips its length; a frame not ending in 3 is followed by another read at
    // once. Data past 8 bytes is not copied; elements count by their integer value (" 67x" as 67,
    // "3" ends the answer, "x" is 0 and ends the text), cut to the low byte.
    board->answer("can.recv", received({0x10, 0x0E, 'T', 'E', 'C', ' ', 'o', 'k'}));
    board->answer("can.recv", received({0x21, 'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I'}));
    board->answer("can.recv", received({0x21, 'A' + 256, 'B' - 256, " 67x", "x", 'D', "3"}));
    board->answer("can.recv", received({0, 'Z', 3}));
    board->clearCalls();
    EXPECT_EQ(bridge.receiveAnswer(2), "TEC okABCDEFGABC");
    EXPECT_EQ(bridge.receiveAnswer(2), "");
    EXPECT_EQ(board->calls().size(), 4u);
    EXPECT_TRUE(fixture.clock->sleeps().empty());

    // A reply without "data" is an empty frame; an empty reply ends the answer.
    for (Value nothing : {Value(), Value::object()}) {
        board->answer("can.recv", Value{{"other", 1}});
        board->answer("can.recv", nothing);
        log.clear();
        EXPECT_EQ(bridge.receiveAnswer(1), "");
        EXPECT_EQ(log.lines(), Lines{"Fixture can.recv:" + kelvane::describe(nothing)});
        EXPECT_EQ(monitor(1), "rawdata [0]: (null)\r\nresultStr [0]: \r\n");
    }

    // Without a terminator the receiver reads for ever; the budget ends the test.
    board->answer("can.recv", received({0x21, 'A'}));
    board->limitCalls(50);
    EXPECT_NONFATAL_FAILURE(EXPECT_THROW(bridge.receiveAnswer(1), kelvane::testing::CallBudgetExceeded), "call budget");
}

TEST_F(CanBridge, CommandSendersSendEveryFrameThenWaitForOk) {
    board->answer("can.send", Value("done"));
    board->answer("can.recv", received({4, 'o', 'k', '!', 3}));
    EXPECT_EQ(bridge.sendCommandForAnswer(Value(2080), "get tec power", 1), "ok!\x03");
    EXPECT_TRUE(bridge.sendCommand(Value("0x820"), "abc", 1));
    EXPECT_EQ(journal(),
              (Lines{"can.send [2080,[16,14,103,101,116,32,116,101],\"EXTEND\"]",
                     "can.send [2080,[33,99,32,112,111,119,101,114],\"EXTEND\"]", "can.send [2080,[34,3],\"EXTEND\"]",
                     "can.recv []", "can.send [\"0x820\",[4,97,98,99,3],\"EXTEND\"]", "can.recv []"}));
    EXPECT_EQ(fixture.clock->sleeps(), (std::vector<double>{0.1, 0.1}));

    // A refused frame (anything but exactly "done") stops the command before any answer is read.
    board->clearCalls();
    board->answer("can.send", Value("done"));
    board->answer("can.send", Value("done "));
    const std::string longCommand(21, 'x');
    EXPECT_EQ(bridge.sendCommandForAnswer(Value(2080), longCommand, 1), std::nullopt);
    EXPECT_EQ(board->methods(), (Lines{"can.send", "can.send"}));
    EXPECT_EQ(log.lines().back(), "Send can command " + longCommand + " fail.");
    EXPECT_FALSE(bridge.sendCommand(Value(2080), "abc", 1));

    // No "OK" within the 5 s answer period: the last answer counts. A receive takes 0.9 s here,
    // so the fifth pause ends at exactly 5.0 s, which ends the period.
    board->answer("can.send", Value("done"));
    board->answer("can.recv", received({4, 'E', 'R', 'R', 3}));
    board->onCall([this](const auto& call) {
        if (call.method == "can.recv") fixture.clock->advance(0.9);
    });
    board->clearCalls();
    EXPECT_EQ(bridge.sendCommandForAnswer(Value(2080), "get tec temp:1", 1), std::nullopt);
    EXPECT_EQ(board->calls().size(), 8u);  // three frames, five receives
    EXPECT_EQ(log.lines().back(), "Can send cmd failed:get tec temp:1!");
    EXPECT_FALSE(bridge.sendCommand(Value(2080), "abc", 1));
}

TEST_F(CanBridge, ChannelOpenAndFixedFrameSend) {
    for (auto [reply, opened] :
         {std::pair{Value("done"), true}, {Value("can.open done"), true}, {Value("DONE"), false}, {Value(), false}}) {
        board->answer("can.open", reply);
        EXPECT_EQ(bridge.openChannel(Value(500000)), opened) << reply;
    }
    EXPECT_EQ(journal().front(), "can.open [500000]");

    board->clearCalls();
    board->answer("can.send", Value("whatever"));
    EXPECT_TRUE(bridge.sendFixedFrame(0x820, "0x01 0x02 9"));
    board->answer("can.send", Value());
    EXPECT_TRUE(bridge.sendFixedFrame(0x820, ""));
    EXPECT_EQ(journal(), Lines(2, "can.send [2080,[1,2,3]]"));
    EXPECT_EQ(log.lines(), (Lines{"Send Can command 0x01 0x02 9 success.", "Send Can command  fail."}));
}
