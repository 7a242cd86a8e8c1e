// How long creating a session takes (what createKelvaneDev does, on a port of our choosing):
// against a loopback port where nothing listens (the connect grace), and against a live
// simulator (the "server.mode" probe), which runs in the benchmark's process.
#include "in_process_simulator.hpp"
#include "simulator_main.hpp"

#include <kelvane/FixtureControl.hpp>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>
#include <memory>

namespace {

using kelvane::bench::InProcessSimulator;

InProcessSimulator* simulator = nullptr;
std::uint32_t closedPort = 0;

void createSession(benchmark::State& state, std::uint32_t port, bool expectSession) {
    kelvane::Value topology = {
        {"FixtureIP", {{"ip", "127.0.0.1"}, {"port", port}}}, {"identifier", 1}, {"units", 1}, {"ScanSN", "NO"}};
    for (auto _ : state) {
        auto session = kelvane::FixtureControl::initWithIP(topology);
        if (static_cast<bool>(session) != expectSession) {
            state.SkipWithError("unexpected outcome of the session creation");
            break;
        }
    }
}

void CreateSessionNothingListening(benchmark::State& state) { createSession(state, closedPort, false); }
void CreateSessionLiveSimulator(benchmark::State& state) { createSession(state, simulator->port(), true); }

BENCHMARK(CreateSessionNothingListening)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(CreateSessionLiveSimulator)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    auto findClosedPort = [](InProcessSimulator&) {
        closedPort = InProcessSimulator().port();  // just given up, so nothing listens
    };
    return kelvane::bench::runWithSimulator<InProcessSimulator>(argc, argv, simulator,
                                                                {"the session creation benchmarks", findClosedPort});
}
