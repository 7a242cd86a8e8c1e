// The browser pages, kelvane-sim's panel (--http) and kelvanectl console, under clients that hold
// on: slow headers, event streams never read, more streams than they take, lengths they will not
// read. None may hold another request up, and each tool's signal (SIGTERM for the simulator,
// SIGINT, Ctrl-C, for the console) ends it at once whatever is open.
#include "child_process.hpp"
#include "simulator_process.hpp"

#include <kelvane/protocol/sim_methods.hpp>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kelvane::testing {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A client made of a plain socket, to behave badly on purpose: half a request, a byte now and
// then, a stream never read (a small `receiveBuffer` stalls the server's writes soon).
class RawConnection {
public:
    explicit RawConnection(int port, int receiveBuffer = 0) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
        if (receiveBuffer > 0) ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) ADD_FAILURE() << "connect";
    }
    ~RawConnection() { ::close(socket_); }

    bool send(std::string_view bytes) {
        return ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    // What arrived within `wait` ("" for nothing), or nullopt once the server closed.
    std::optional<std::string> receive(std::chrono::milliseconds wait) {
        pollfd ready{socket_, POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(wait.count())) <= 0) return "";
        char bytes[65536];
        auto got = ::recv(socket_, bytes, sizeof bytes, 0);
        return got > 0 ? std::optional(std::string(bytes, static_cast<std::size_t>(got))) : std::nullopt;
    }
    // Sends `request`; the answer's status, once its header (and body, by Content-Length) came.
    int exchange(std::string_view request) {
        std::string answer;
        bool complete = !send(request);
        for (auto giveUp = Clock::now() + 5s; !complete && Clock::now() < giveUp;) {
            auto more = receive(10ms);
            if (!more) break;
            answer += *more;
            auto headerEnd = answer.find("\r\n\r\n");
            auto length = answer.find("Content-Length: ");
            auto body =
                headerEnd != std::string::npos && length < headerEnd ? std::stoul(answer.substr(length + 16)) : 0;
            complete = headerEnd != std::string::npos && answer.size() >= headerEnd + 4 + body;
        }
        return answer.starts_with("HTTP/1.1 ") ? std::stoi(answer.substr(9)) : 0;
    }

private:
    int socket_;
};
using Connections = std::vector<std::unique_ptr<RawConnection>>;

constexpr int slowClients = 16;
constexpr int streamBound = 32;
constexpr auto watchdog = 40s;
constexpr auto endGrace = 2s;

// A page's server as the test drives it: where it serves, the header its API requests carry
// (the console's token), the GETs that must answer, a POST that makes an event on every stream
// (a fixture's state read), and its end by its signal.
struct PageServer {
    // The panel of kelvane-sim --fixtures 8 --http 0, each round reading another fixture's state;
    // or kelvanectl console on a simulated fixture, each round reading its sensors (a result, the
    // device's log lines and its state, all events) while the console polls them as well.
    explicit PageServer(const std::string& page) {
        if (page == "panel") {
            constexpr int fixtures = 8;
            sim.emplace(SimulatedStation{fixtures}, std::vector<std::string>{"--http", "0", "--tec-slots", "16"});
            port = sim->panelPort();
            paths = {"/", "/panel.js", "/drawings.js", "/api/fixtures", "/api/journal?fixture=8&last=1"};
            postPath = "/api/control";
            eventfulBody = [](int round) {
                return Value{{"fixture", round % fixtures + 1}, {"method", methods::sim::state}}.dump();
            };
            return;
        }
        sim.emplace();
        auto [pid, output] = spawn(KELVANECTL_PATH, {"--port", std::to_string(sim->port()), "console", "--http", "0"});
        console = pid;
        auto line = readLines(output, 1).front();
        char token[65] = {};
        if (std::sscanf(line.c_str(), "console at http://127.0.0.1:%d/#token=%64[0-9a-f]", &port, token) != 2) {
            ADD_FAILURE() << "kelvanectl console printed: " << line;
        }
        apiHeader = "X-Kelvane-Token: " + std::string(token) + "\r\n";
        paths = {"/", "/console.js", "/drawings.js", "/api/fixtures", "/api/operations"};
        postPath = "/api/op";
        eventfulBody = [](int) { return std::string(R"({"fixture":"127.0.0.1","op":"sensors"})"); };
    }
    ~PageServer() {
        if (console > 0) end();
    }
    // SIGINT (Ctrl-C) for the console, SIGTERM for the panel's simulator.
    ProcessEnding end() {
        return console > 0 ? endWith(std::exchange(console, -1), SIGINT, endGrace) : sim->terminate();
    }

    std::string get(const std::string& path) const {
        return "GET " + path + " HTTP/1.1\r\nHost: x\r\n" + apiHeader + "\r\n";
    }
    std::string post(const std::string& body, const std::string& length) const {
        return "POST " + postPath + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n" + apiHeader +
               "Content-Type: application/json\r\nContent-Length: " + length + "\r\n\r\n" + body;
    }

    std::optional<SimulatorProcess> sim;
    pid_t console = -1;
    int port = 0;
    std::string apiHeader, postPath;
    std::vector<std::string> paths;
    std::function<std::string(int round)> eventfulBody;
};

class PageServing : public ::testing::TestWithParam<std::string> {};

TEST_P(PageServing, SlowHeadersStreamsAndBadLengthsHoldNothingUpAStalledStreamIsDroppedAndItsSignalEndsIt) {
    PageServer page(GetParam());
    const int port = page.port;
    Connections slow;  // each sends a byte every half second: only a deadline for the whole request ends them
    for (int i = 0; i < slowClients; ++i) {
        slow.push_back(std::make_unique<RawConnection>(port));
        slow.back()->send("GET / HTTP/1.1\r\n");
    }
    RawConnection stalled(port, 4096);  // opens a stream and never reads it
    EXPECT_EQ(stalled.exchange(page.get("/api/events")), 200);
    Connections streams;
    while (streams.size() + 1 < streamBound) {
        streams.push_back(std::make_unique<RawConnection>(port));
        ASSERT_EQ(streams.back()->exchange(page.get("/api/events")), 200) << streams.size();
    }
    EXPECT_EQ(RawConnection(port).exchange(page.get("/api/events")), 503);
    RawConnection client(port);
    for (const auto& path : page.paths) EXPECT_EQ(client.exchange(page.get(path)), 200) << path;
    for (const auto* length : {"-1", "100000000000000000000"}) {
        EXPECT_EQ(RawConnection(port).exchange(page.post("", length)), 400) << length;
    }

    // Every state read is an event on every stream: the stalled one fills up and is dropped,
    // which frees its place, while the others keep reading.
    int slowOpen = slowClients;
    bool placeFreed = false;
    const auto giveUp = Clock::now() + watchdog;
    auto nextByte = Clock::now();
    for (int k = 0; (slowOpen > 0 || !placeFreed) && Clock::now() < giveUp; ++k) {
        auto body = page.eventfulBody(k);
        ASSERT_EQ(client.exchange(page.post(body, std::to_string(body.size()))), 200);
        for (auto& stream : streams) ASSERT_TRUE(stream->receive(0ms)) << "a stream that reads was dropped";
        if (Clock::now() >= nextByte) {
            nextByte += 500ms;
            slowOpen = 0;
            for (auto& each : slow) slowOpen += each->send("X") && each->receive(0ms) ? 1 : 0;
        }
        if (!placeFreed && k % 50 == 0) {
            streams.push_back(std::make_unique<RawConnection>(port));
            placeFreed = streams.back()->exchange(page.get("/api/events")) == 200;
            if (!placeFreed) streams.pop_back();
        }
    }
    EXPECT_EQ(slowOpen, 0) << "clients sending a byte at a time were never closed";
    ASSERT_TRUE(placeFreed) << "the stream never read kept its place";  // no stream that reads lost it

    slow.clear();
    for (int i = 0; i < slowClients; ++i) slow.push_back(std::make_unique<RawConnection>(port));
    auto ending = page.end();  // with 32 streams and 16 silent connections open
    EXPECT_LT(ending.took, 1s);
    EXPECT_TRUE(WIFEXITED(ending.status) && WEXITSTATUS(ending.status) == 0) << ending.status;
}

INSTANTIATE_TEST_SUITE_P(, PageServing, ::testing::Values("panel", "console"),
                         [](const auto& page) { return page.param; });

}  // namespace
}  // namespace kelvane::testing
