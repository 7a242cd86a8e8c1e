#include "fake_rpc_client.hpp"
#include "virtual_clock.hpp"

#include "can/frames.hpp"
#include "can/receiver.hpp"
#include "can/senders.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

using kelvane::Value;
using kelvane::can::Frame;
using kelvane::testing::CallBudgetExceeded;

namespace {

class CanBridge : public ::testing::Test {
protected:
    std::shared_ptr<kelvane::testing::FakeRpcClient> board =
        std::make_shared<kelvane::testing::FakeRpcClient>();
    kelvane::testing::VirtualClock clock;
    kelvane::CapturingLog log;
    std::vector<std::string> monitor;  // "<slot>|<text>"
    kelvane::can::Bridge bridge{board, clock, log, [this](std::int32_t slot, const std::string& text) {
                                    monitor.push_back(std::to_string(slot) + "|" + text);
                                }};

    static Value received(Value data) { return Value{{"data", std::move(data)}}; }
    std::size_t callsOf(const std::string& method) const {
        auto names = board->methods();
        return static_cast<std::size_t>(std::count(names.begin(), names.end(), method));
    }
};

// The payload as the controller reassembles it from the frames' headers.
std::string reassembled(const std::vector<Frame>& frames) {
    std::string payload;
    for (const auto& frame : frames) {
        std::size_t header = frame[0] == 0x10 ? 2 : 1;
        for (std::size_t i = header; i < frame.size(); ++i) payload += static_cast<char>(frame[i]);
    }
    return payload;
}

}  // namespace

TEST_F(CanBridge, CommandsAreCutIntoTheShapesTheControllersExpect) {
    EXPECT_EQ(kelvane::can::framesForCommand(bridge, "abc", 3),
              (std::vector<Frame>{{4, 0x61, 0x62, 0x63, 3}}));
    EXPECT_EQ(monitor, (std::vector<std::string>{"3|handleCanCMD: abc",
                                                 "3|command array will send: [[4,97,98,99,3]]"}));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"hexStr: 616263", "tmpStr: 61626303",
                                                     "decimalStr: [4,97,98,99,3]"}));
    EXPECT_EQ(kelvane::can::framesForCommand(bridge, "", 1), (std::vector<Frame>{{1, 3}}));

    // command length -> frame heads and sizes; the last frame is never padded nor shortened
    const std::vector<std::pair<std::size_t, std::vector<std::pair<int, std::size_t>>>> shapes = {
        {6, {{7, 8}}},
        {7, {{0x10, 8}, {0x21, 3}}},
        {13, {{0x10, 8}, {0x21, 8}, {0x22, 2}}},
        {20, {{0x10, 8}, {0x21, 8}, {0x22, 9}}},
        {21, {{0x10, 8}, {0x21, 8}, {0x21, 8}, {0x22, 3}}},
        {28, {{0x10, 8}, {0x21, 8}, {0x21, 8}, {0x22, 10}}},
    };
    for (const auto& [length, shape] : shapes) {
        const std::string command(length, 'x');
        auto frames = kelvane::can::framesForCommand(bridge, command, 1);
        ASSERT_EQ(frames.size(), shape.size()) << length;
        for (std::size_t i = 0; i < shape.size(); ++i) {
            EXPECT_EQ(frames[i][0], shape[i].first) << length << " frame " << i;
            EXPECT_EQ(frames[i].size(), shape[i].second) << length << " frame " << i;
        }
        if (frames.size() > 1) {
            EXPECT_EQ(frames[0][1], static_cast<int>(length + 1));
        }
        EXPECT_EQ(reassembled(frames), command + "\x03");
    }

    log.clear();
    monitor.clear();
    EXPECT_TRUE(kelvane::can::framesForCommand(bridge, std::string(29, 'x'), 2).empty());
    EXPECT_EQ(log.lines().size(), 2u);  // hexStr and tmpStr, no frame converted
    EXPECT_EQ(monitor.back(), "2|command array will send: []");
}

TEST_F(CanBridge, AnswersAreReassembledFromFramesUntilTheTerminator) {
    board->answer("can.recv", received({4, 0x4F, 0x4B, 0x0D, 3}));
    EXPECT_EQ(kelvane::can::receiveAnswer(bridge, 2), "OK\r\x03");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"4", "79", "75", "13", "3"}));
    EXPECT_EQ(monitor, (std::vector<std::string>{"2|rawdata [0]: [4,79,75,13,3]",
                                                 "2|resultStr [0]: OK\r\x03"}));
    auto call = board->calls().front();
    EXPECT_EQ(call.args, Value::array());
    EXPECT_EQ(call.kwargs, (Value{{"timeout_ms", 3000}}));
    EXPECT_FALSE(call.hadErrorSlot);

    // First frame skips its length; a frame not ending in 3 is followed by another read at once.
    // Data past 8 bytes is not copied, non-numbers read 0 (ending the text), values keep their
    // low byte.
    board->answer("can.recv", received({0x10, 0x0E, 'T', 'E', 'C', ' ', 'o', 'k'}));
    board->answer("can.recv", received({0x21, 'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I'}));
    board->answer("can.recv", received({0x21, 'A' + 256, 'B' - 256, "x", 'C', 3}));
    board->answer("can.recv", received({0, 'Z', 3}));
    board->clearCalls();
    EXPECT_EQ(kelvane::can::receiveAnswer(bridge, 2), "TEC okABCDEFGAB");
    EXPECT_EQ(kelvane::can::receiveAnswer(bridge, 2), "");
    EXPECT_EQ(board->calls().size(), 4u);
    EXPECT_TRUE(clock.sleeps().empty());

    for (Value nothing : {Value(), Value::object()}) {
        board->answer("can.recv", nothing);
        log.clear();
        EXPECT_EQ(kelvane::can::receiveAnswer(bridge, 1), "");
        EXPECT_EQ(log.lines(), std::vector<std::string>{"Fixture can.recv:" + kelvane::describe(nothing)});
    }

    // Without a terminator the receiver reads for ever; the budget ends the test.
    board->answer("can.recv", received({0x21, 'A'}));
    board->limitCalls(50);
    EXPECT_NONFATAL_FAILURE(
        EXPECT_THROW(kelvane::can::receiveAnswer(bridge, 1), CallBudgetExceeded), "call budget");
}

TEST_F(CanBridge, CommandSendersSendEveryFrameThenWaitForOk) {
    board->answer("can.send", Value("done"));
    board->answer("can.recv", received({4, 'o', 'k', '!', 3}));
    EXPECT_EQ(kelvane::can::sendCommandForAnswer(bridge, Value(2080), "get tec power", 1), "ok!\x03");
    auto send = board->calls().front();
    EXPECT_EQ(send.args, Value::array({2080, Value::array({0x10, 0x0E, 'g', 'e', 't', ' ', 't', 'e'}),
                                       "EXTEND"}));
    EXPECT_EQ(send.kwargs, (Value{{"timeout_ms", 3000}}));
    EXPECT_FALSE(send.hadErrorSlot);
    EXPECT_EQ(callsOf("can.send"), 3u);
    EXPECT_EQ(clock.sleeps(), std::vector<double>{0.1});
    EXPECT_TRUE(kelvane::can::sendCommand(bridge, Value("0x820"), "abc", 1));
    EXPECT_EQ(board->calls().at(4).args[0], Value("0x820"));

    // A refused frame stops the command before any answer is read.
    board->clearCalls();
    board->answer("can.send", Value("done"));
    board->answer("can.send", Value("done "));
    log.clear();
    EXPECT_EQ(kelvane::can::sendCommandForAnswer(bridge, Value(2080), std::string(21, 'x'), 1), std::nullopt);
    EXPECT_EQ(board->methods(), (std::vector<std::string>{"can.send", "can.send"}));
    EXPECT_EQ(log.lines().back(), "Send can command " + std::string(21, 'x') + " fail.");
    EXPECT_FALSE(kelvane::can::sendCommand(bridge, Value(2080), "abc", 1));

    // No "OK" within the 5 s answer period: the last answer is judged (1 s per receive here).
    board->answer("can.send", Value("done"));
    board->answer("can.recv", received({4, 'E', 'R', 'R', 3}));
    board->onCall([this](const kelvane::testing::RecordedCall& call) {
        if (call.method == "can.recv") clock.advance(1.0);
    });
    board->clearCalls();
    log.clear();
    EXPECT_EQ(kelvane::can::sendCommandForAnswer(bridge, Value(2080), "get tec temp:1", 1), std::nullopt);
    EXPECT_EQ(callsOf("can.recv"), 5u);
    EXPECT_EQ(log.lines().back(), "Can send cmd failed:get tec temp:1!");
    EXPECT_FALSE(kelvane::can::sendCommand(bridge, Value(2080), "abc", 1));
}

TEST_F(CanBridge, ChannelOpenAndFixedFrameSend) {
    for (auto [reply, opened] : {std::pair{Value("done"), true}, {Value("can.open done"), true},
                                 {Value("DONE"), false}, {Value(), false}}) {
        board->answer("can.open", reply);
        EXPECT_EQ(kelvane::can::openChannel(bridge, Value(500000)), opened) << reply;
    }
    auto open = board->calls().front();
    EXPECT_EQ(open.args, Value::array({500000}));
    EXPECT_TRUE(open.hadErrorSlot);

    board->clearCalls();
    board->answer("can.send", Value("whatever"));
    EXPECT_TRUE(kelvane::can::sendFixedFrame(bridge, 0x820, "0x01 0x02 9"));
    board->answer("can.send", Value());
    EXPECT_TRUE(kelvane::can::sendFixedFrame(bridge, 0x820, ""));
    for (const auto& call : board->calls()) {
        EXPECT_EQ(call.args, Value::array({2080, Value::array({1, 2, 3})}));
        EXPECT_TRUE(call.hadErrorSlot);
    }
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"Send Can command 0x01 0x02 9 success.",
                                                     "Send Can command  fail."}));
}
