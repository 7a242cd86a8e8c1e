// What an idle session costs its host, against one kelvane-sim (all on loopback):
// - IdleSessionCpu: process CPU time (user + system, all threads) while one connected session
//   sits idle for 10 s.
// - ResourcesPerSession: threads, descriptors and resident memory that each of 16 sessions adds.
// Single iterations: these are counts, not speeds; the counters carry the figures.
#include "process_resources.hpp"
#include "simulator_main.hpp"
#include "simulator_process.hpp"

#include <kelvane/FixtureControl.hpp>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <thread>
#include <vector>

namespace {

using kelvane::testing::SimulatorProcess;

constexpr auto idleTime = std::chrono::seconds(10);
constexpr int sessionsCounted = 16;
SimulatorProcess* simulator = nullptr;

std::shared_ptr<kelvane::FixtureControl> openSession() {
    return kelvane::FixtureControl::initWithIP(
        {{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", simulator->port()}}},
         {"identifier", 1},
         {"units", 1},
         {"ScanSN", "NO"}});
}

double processCpuMs() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    auto ms = [](const timeval& t) { return t.tv_sec * 1e3 + t.tv_usec / 1e3; };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

void IdleSessionCpu(benchmark::State& state) {
    auto session = openSession();
    if (!session) return state.SkipWithError("no session");
    for (auto _ : state) {
        double before = processCpuMs();
        std::this_thread::sleep_for(idleTime);
        state.counters["cpu_ms_per_10s"] = processCpuMs() - before;
    }
}

void ResourcesPerSession(benchmark::State& state) {
    using namespace kelvane::testing;
    if (!residentBytes() || !threadCount() || !descriptorCount()) {
        return state.SkipWithError("no /proc here");
    }
    for (auto _ : state) {
        auto threads = *threadCount();
        auto descriptors = *descriptorCount();
        auto resident = *residentBytes();
        std::vector<std::shared_ptr<kelvane::FixtureControl>> sessions;
        for (int i = 0; i < sessionsCounted; ++i) sessions.push_back(openSession());
        auto per = [](std::size_t after, std::size_t before) {
            return (static_cast<double>(after) - static_cast<double>(before)) / sessionsCounted;
        };
        state.counters["threads"] = per(*threadCount(), threads);
        state.counters["descriptors"] = per(*descriptorCount(), descriptors);
        state.counters["resident_KiB"] = per(*residentBytes(), resident) / 1024;
    }
}

BENCHMARK(IdleSessionCpu)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(ResourcesPerSession)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return kelvane::bench::runWithSimulator(argc, argv, simulator,
                                            {"the session resource benchmarks"});
}
