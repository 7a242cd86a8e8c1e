// Handle churn: threads creating and destroying handles, as a station's host does while its
// fixtures are off, refuse the session, or are stopped and restarted. Every client of the process
// shares ZeroMQ's one I/O thread, so one client stuck on it stalls every handle of the host: each
// thread must end its churn in time, and afterwards a new handle must still connect.
#include "simulator_process.hpp"

#include <kelvane/kelvane.h>

#include <gtest/gtest.h>
#include <zmq.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace kelvane::testing {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto churnFor = 20s;
// A create and a destroy take at most a second or two, even under ThreadSanitizer.
constexpr auto stuckAfter = 20s;

struct Target {
    const char* name;
    int threads;
    std::string address;  // "" for 127.0.1.k, k the thread's number
    int port;
    std::atomic<int> handles{0}, connected{0}, running{0};
};

// Handles to the target, each created, asked once and destroyed, until `end`.
void churn(Target& target, int thread, Clock::time_point end) {
    std::string address = target.address.empty() ? "127.0.1." + std::to_string(thread % 254 + 1) : target.address;
    KelvaneOptions options = KELVANE_OPTIONS_INIT;
    options.port = target.port, options.callTimeoutMs = 300, options.log = "off";
    while (Clock::now() < end) {
        KelvaneHandle handle = createKelvaneDevWithOptions(address.c_str(), &options);
        target.connected += getConnectFlag(handle);
        checkPositionSensor(handle);  // calls in flight when the controller stops or goes
        destroyKelvaneDev(handle);
        ++target.handles;
    }
    --target.running;
}

TEST(HandleChurn, ThreadsChurningHandlesToSilentRefusingStoppedAndRestartedControllersNeverWedgeTheHost) {
    int closedPort = static_cast<int>(SimulatorProcess(SimulatedStation{1}).port());  // just given up
    SimulatorProcess restarted;
    zmq::context_t peerContext;
    zmq::socket_t refusing(peerContext, zmq::socket_type::pub);  // ends each session in the handshake
    refusing.set(zmq::sockopt::linger, 0);
    refusing.bind("tcp://127.0.0.1:*");
    auto refusingEndpoint = refusing.get(zmq::sockopt::last_endpoint);
    Target targets[] = {
        {"silent (nothing listens on 127.0.1.k)", 64, "", closedPort},
        {"refusing (a peer of the wrong socket type)", 16, "127.0.0.1",
         std::stoi(refusingEndpoint.substr(refusingEndpoint.rfind(':') + 1))},
        {"stopped and restarted", 32, restarted.address(), static_cast<int>(restarted.port())},
    };

    auto end = Clock::now() + churnFor;
    std::vector<std::thread> threads;
    for (auto& target : targets) {
        target.running = target.threads;
        for (int i = 0; i < target.threads; ++i) threads.emplace_back([&, i] { churn(target, i, end); });
    }
    int stops = 0;
    try {
        for (; Clock::now() < end; ++stops) {
            restarted.pause();
            std::this_thread::sleep_for(400ms);
            restarted.resume();
            std::this_thread::sleep_for(400ms);
            restarted.kill(), restarted.restart();
            std::this_thread::sleep_for(400ms);
        }
    } catch (const std::exception& error) {
        ADD_FAILURE() << error.what();
    }
    // A thread stuck in ZeroMQ can never be joined: the process ends rather than hang the suite.
    auto churning = [&](const Target& target) { return target.running > 0; };
    while (std::any_of(std::begin(targets), std::end(targets), churning) && Clock::now() < end + stuckAfter)
        std::this_thread::sleep_for(100ms);
    if (std::any_of(std::begin(targets), std::end(targets), churning)) {
        for (const auto& target : targets)
            std::fprintf(stderr, "[handle churn] wedged: %d threads churning handles to the %s controller\n",
                         target.running.load(), target.name);
        std::_Exit(EXIT_FAILURE);
    }
    for (auto& thread : threads) thread.join();
    std::printf("[handle churn] %lld s:", static_cast<long long>(churnFor.count()));
    for (const auto& target : targets) std::printf(" %s %d handles,", target.name, target.handles.load());
    std::printf(" %d connected; %d stops and restarts\n", targets[2].connected.load(), stops);

    for (const auto& target : targets) EXPECT_GT(target.handles, target.threads) << target.name;
    EXPECT_GT(targets[2].connected, 0) << "no handle reached the controller while it ran";
    EXPECT_EQ(targets[0].connected + targets[1].connected, 0);
    KelvaneOptions options = KELVANE_OPTIONS_INIT;
    options.port = static_cast<int>(restarted.port()), options.log = "off";
    KelvaneHandle after = createKelvaneDevWithOptions(restarted.address().c_str(), &options);
    EXPECT_EQ(getConnectFlag(after), 1) << "a new handle no longer connects";
    destroyKelvaneDev(after);
}

}  // namespace
}  // namespace kelvane::testing
