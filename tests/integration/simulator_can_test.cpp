// The CAN bridge and the TEC controllers behind it, driven with raw "can.send"/"can.recv" calls:
// commands cut into the library's frame shapes, answers put back together the way the library's
// receiver reads them.
#include "simulator_test_support.hpp"

#include <regex>

namespace kelvane::testing {
namespace {

namespace m = kelvane::methods;

constexpr int slotOneId = 2080;

std::vector<int> consecutiveSequence(int payloadBytes) {
    if (payloadBytes <= 13) return {0x21};
    if (payloadBytes <= 21) return {0x21, 0x22};
    return {0x21, 0x21, 0x22};
}

// The library's cut: payload = text + 0x03; single frame up to 7 bytes, else 0x10 + length and
// 6 bytes, then 0x21 / 0x21 0x22 / 0x21 0x21 0x22 frames of 7 bytes and the rest unpadded.
std::vector<Value> cut(const std::string& command, std::vector<int> sequence = {}) {
    std::vector<int> payload(command.begin(), command.end());
    payload.push_back(3);
    auto bytes = [&](std::size_t from, std::size_t to) {
        return std::vector<int>(payload.begin() + from, payload.begin() + std::min(to, payload.size()));
    };
    auto framed = [](std::vector<int> head, const std::vector<int>& body) {
        head.insert(head.end(), body.begin(), body.end());
        return Value(head);
    };
    int n = static_cast<int>(payload.size());
    if (n <= 7) return {framed({n}, payload)};
    if (sequence.empty()) sequence = consecutiveSequence(n);
    std::vector<Value> frames = {framed({0x10, n}, bytes(0, 6))};
    for (std::size_t i = 0; i < sequence.size(); ++i) {
        bool last = i + 1 == sequence.size();
        frames.push_back(framed({sequence[i]}, bytes(6 + 7 * i, last ? payload.size() : 13 + 7 * i)));
    }
    return frames;
}

class SimulatorCanTest : public SimulatorTest {
protected:
    void send(int id, const std::string& command, std::vector<int> sequence = {}) {
        for (const auto& frame : cut(command, std::move(sequence))) {
            ASSERT_EQ(call(m::canSend, {id, frame, "EXTEND"}, {{"timeout_ms", 3000}}), "done");
        }
    }
    // The library's receiver: first frames give bytes 2..7, other non-zero heads bytes 1..7 up to
    // a zero byte; the answer ends with a frame whose last byte is 3, or when none is queued.
    std::string receive() {
        std::string text;
        for (int frames = 0; frames < 20; ++frames) {
            Value reply = call(m::canRecv, Value::array(), {{"timeout_ms", 3000}});
            if (reply.empty()) return text;
            std::vector<int> data = reply["data"].get<std::vector<int>>();
            std::vector<int> buffer(8, 0);
            std::copy_n(data.begin(), std::min<std::size_t>(data.size(), 8), buffer.begin());
            std::size_t from = buffer[0] == 0x10 ? 2 : 1;
            for (std::size_t i = from; buffer[0] != 0 && i < 8 && buffer[i] != 0; ++i) {
                text += char(buffer[i]);
            }
            if (data.back() == 3) return text;
        }
        ADD_FAILURE() << "no terminator after 20 frames";
        return text;
    }
    std::string exchange(int slot, const std::string& command) {
        send(slotOneId + slot - 1, command);
        return receive();
    }
};

TEST_F(SimulatorCanTest, ControllersReassembleEveryFrameShapeAndAnswerInFrames) {
    EXPECT_EQ(call(m::canOpen, {500000}, {{"timeout_ms", 3000}}), "done");
    const std::regex temperature(R"(TEC temp: (\d+\.\d\d) C OK\x03)");
    std::smatch match;
    for (int sensor = 1; sensor <= 4; ++sensor) {
        std::string answer = exchange(2, "get tec temp:" + std::to_string(sensor));  // three frames
        ASSERT_TRUE(std::regex_match(answer, match, temperature)) << answer;
        EXPECT_GT(std::stod(match[1]), 21.5) << "settling from ambient toward 25, never below the floor";
        EXPECT_LT(std::stod(match[1]), 29.0);
    }
    std::string power = exchange(1, "get tec power");
    EXPECT_TRUE(std::regex_match(
        power, std::regex(R"(TEC : 12\.00 V, \d+\.\d\d A, \d+\.\d\d W ,PWM: -\d+\.\d\d% OK\x03)")))
        << power << " (cooling: PWM negative)";

    EXPECT_EQ(exchange(3, "get ver"), "ERR\x03") << "two frames; unknown commands get no OK";
    const std::string fourFrames = "set tec target:25.00 C";
    EXPECT_EQ(exchange(3, fourFrames), "ERR\x03");
    Value slot3 = sim.control("sim.state")["tec"]["3"];
    EXPECT_EQ(slot3["last_command"], fourFrames);
    EXPECT_EQ(slot3["frames_in"], 2 + 4);

    send(slotOneId + 2, fourFrames, {0x21, 0x22, 0x23});
    EXPECT_EQ(receive(), "") << "an ISO-style sequence is not the controllers' shape: no answer";
    EXPECT_EQ(sim.control("sim.state")["tec"]["3"]["rejected_frames"], 2)
        << "the 0x22 out of turn, then the 0x23";
    EXPECT_EQ(call(m::canSend, {slotOneId, cut("get tec power")[0]}),
              "can_send_refused: the message id needs \"EXTEND\" (above 0x7FF)");
}

TEST_F(SimulatorCanTest, FaultsApplyToTheirSlotAndCommandForTheirTimesUntilReset) {
    Value faults = Value::array({
        {{"kind", "fail"}, {"slot", 1}, {"command", "get tec power"}, {"times", 1}},
        {{"kind", "low_reading"}, {"slot", 1}, {"sensor", 3}},
        {{"kind", "empty_answer"}, {"slot", 2}, {"command", "get tec temp:2"}},
        {{"kind", "no_answer"}, {"slot", 2}},
        {{"kind", "recv_nothing"}, {"slot", 3}, {"times", 1}},
        {{"kind", "send_refused"}, {"slot", 4}, {"times", 1}},
        {{"kind", "send_error"}, {"slot", 4}, {"times", 1}},
        {{"kind", "no_ok"}, {"slot", 4}},
        {{"kind", "sensor_offset"}, {"slot", 4}, {"sensor", 2}},
    });
    EXPECT_EQ(sim.control("sim.set", Value::array({{{"tec_faults", faults}}})), "done");

    EXPECT_TRUE(exchange(1, "get tec power").ends_with("% FAIL\x03"));
    EXPECT_TRUE(exchange(1, "get tec power").ends_with("% OK\x03")) << "used up after one time";
    EXPECT_EQ(exchange(1, "get tec temp:3"), "TEC temp: 18.00 C OK\x03");
    EXPECT_EQ(exchange(1, "get tec temp:3"), "TEC temp: 18.00 C OK\x03") << "without times: until cleared";
    EXPECT_EQ(exchange(2, "get tec temp:1"), "") << "nothing queued: can.recv answers {}";
    send(slotOneId + 1, "get tec temp:2");
    EXPECT_EQ(call(m::canRecv), (Value{{"data", {0, 3}}})) << "an empty answer: one frame without text";
    send(slotOneId + 2, "get ver");
    EXPECT_TRUE(call(m::canRecv).is_null()) << "the frame waits, the bridge reports nothing";
    EXPECT_EQ(receive(), "ERR\x03");
    EXPECT_EQ(call(m::canSend, {slotOneId + 3, cut("get ver")[0], "EXTEND"}), "busy");
    EXPECT_EQ(failure(m::canSend, {slotOneId + 3, cut("get ver")[0], "EXTEND"}), -32000);
    EXPECT_TRUE(exchange(4, "get tec power").ends_with("%\x03")) << "no OK";
    std::string one = exchange(4, "get tec temp:1"), two = exchange(4, "get tec temp:2");
    EXPECT_GT(std::stod(two.substr(10)) - std::stod(one.substr(10)), 3.0) << one << " / " << two;
    EXPECT_EQ(sim.control("sim.state")["tec"]["1"]["faults"].size(), 1u);

    sim.control("sim.reset");
    EXPECT_TRUE(exchange(1, "get tec temp:3").starts_with("TEC temp: 2"));
    EXPECT_NE(exchange(2, "get tec temp:1"), "");
}

}  // namespace
}  // namespace kelvane::testing
