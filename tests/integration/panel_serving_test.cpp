// kelvane-sim's panel (--http) under clients that hold on: slow headers, event streams never
// read, more streams than it takes, lengths it will not read. None may hold another request up,
// and SIGTERM ends the simulator at once whatever is open.
#include "raw_http.hpp"
#include "simulator_process.hpp"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <memory>

namespace kelvane::testing {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using Connections = std::vector<std::unique_ptr<RawHttpConnection>>;

constexpr int fixtures = 8;
constexpr int slowClients = 16;
constexpr int streamBound = 32;
constexpr auto watchdog = 40s;

std::string get(const std::string& path) { return "GET " + path + " HTTP/1.1\r\nHost: x\r\n\r\n"; }

std::string post(int port, const std::string& body, const std::string& length) {
    return "POST /api/control HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
           "\r\nContent-Type: application/json\r\nContent-Length: " + length + "\r\n\r\n" + body;
}

std::string readState(int port, int fixture) {
    std::string body = "{\"fixture\":" + std::to_string(fixture) + ",\"method\":\"sim.state\"}";
    return post(port, body, std::to_string(body.size()));
}

TEST(PanelServing, SlowHeadersStreamsAndBadLengthsHoldNothingUpAStalledStreamIsDroppedAndSigtermEndsIt) {
    SimulatorProcess sim(SimulatedStation{fixtures}, {"--http", "0", "--tec-slots", "16"});
    const int port = sim.panelPort();
    Connections slow;  // each sends a byte every half second: only a deadline for the whole request ends them
    for (int i = 0; i < slowClients; ++i) {
        slow.push_back(std::make_unique<RawHttpConnection>(port));
        slow.back()->send("GET / HTTP/1.1\r\n");
    }
    RawHttpConnection stalled(port, 4096);  // opens a stream and never reads it
    EXPECT_EQ(stalled.exchange(get("/api/events"), 5s), 200);
    Connections streams;
    while (streams.size() + 1 < streamBound) {
        streams.push_back(std::make_unique<RawHttpConnection>(port));
        ASSERT_EQ(streams.back()->exchange(get("/api/events"), 5s), 200) << streams.size();
    }
    EXPECT_EQ(RawHttpConnection(port).exchange(get("/api/events"), 5s), 503);
    RawHttpConnection client(port);
    for (const auto* path : {"/", "/panel.js", "/api/fixtures", "/api/journal?fixture=8&last=1"}) {
        EXPECT_EQ(client.exchange(get(path), 5s), 200) << path;
    }
    for (const auto* length : {"-1", "100000000000000000000"}) {
        EXPECT_EQ(RawHttpConnection(port).exchange(post(port, "", length), 5s), 400) << length;
    }

    // Every state read is an event on every stream: the stalled one fills up and is dropped,
    // which frees its place, while the others keep reading.
    int slowOpen = slowClients;
    bool placeFreed = false;
    const auto giveUp = Clock::now() + watchdog;
    auto nextByte = Clock::now();
    for (int k = 0; (slowOpen > 0 || !placeFreed) && Clock::now() < giveUp; ++k) {
        ASSERT_EQ(client.exchange(readState(port, k % fixtures + 1), 5s), 200);
        for (auto& stream : streams) ASSERT_TRUE(stream->receive(0ms)) << "a stream that reads was dropped";
        if (Clock::now() >= nextByte) {
            nextByte += 500ms;
            slowOpen = 0;
            for (auto& each : slow) slowOpen += each->send("X") && each->receive(0ms) ? 1 : 0;
        }
        if (!placeFreed && k % 50 == 0) {
            streams.push_back(std::make_unique<RawHttpConnection>(port));
            placeFreed = streams.back()->exchange(get("/api/events"), 5s) == 200;
            if (!placeFreed) streams.pop_back();
        }
    }
    EXPECT_EQ(slowOpen, 0) << "clients sending a byte at a time were never closed";
    ASSERT_TRUE(placeFreed) << "the stream never read kept its place";
    EXPECT_TRUE(stalled.closesWithin(5s));

    slow.clear();
    for (int i = 0; i < slowClients; ++i) slow.push_back(std::make_unique<RawHttpConnection>(port));
    auto ending = sim.terminate();  // with 32 streams and 16 silent connections open
    EXPECT_LT(ending.took, 1s);
    EXPECT_TRUE(WIFEXITED(ending.status) && WEXITSTATUS(ending.status) == 0) << ending.status;
}

}  // namespace
}  // namespace kelvane::testing
