// What an idle session costs its host, against one kelvane-sim (all on loopback), a process of
// its own so that it adds nothing to the counts:
// - IdleSessionCpu: process CPU time (user + system, all threads) while one connected session
//   sits idle for 10 s.
// - ResourcesWithSessions/N: the process's threads with N sessions open (N = 1, 16, 256), and the
//   descriptors and resident memory each adds.
// - CreateDestroyCycles: threads and descriptors after 2,000 sessions opened and closed in turn.
// Single iterations: these are counts, not speeds; the counters carry the figures. What every
// session shares (the process's ZeroMQ context and monitor thread) is made by a session opened
// and closed before the benchmarks, so the counts are of the sessions alone. The benchmark
// raises its own descriptor limit: a build that gives each session a context needs thousands.
#include "process_resources.hpp"
#include "simulator_child.hpp"
#include "simulator_main.hpp"

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

using kelvane::bench::SimulatorChild;

constexpr auto idleTime = std::chrono::seconds(10);
constexpr int cycles = 2000;
SimulatorChild* simulator = nullptr;

std::shared_ptr<kelvane::FixtureControl> openSession() {
    return kelvane::FixtureControl::initWithIP({{"FixtureIP", {{"ip", "127.0.0.1"}, {"port", simulator->port()}}},
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

struct ProcessCounts {
    std::size_t threads, descriptors, resident;
    static ProcessCounts now() {
        using namespace kelvane::testing;
        return {*threadCount(), *descriptorCount(), *residentBytes()};
    }
};

bool countsReadable() {
    using namespace kelvane::testing;
    return residentBytes() && threadCount() && descriptorCount();
}

double difference(std::size_t after, std::size_t before) {
    return static_cast<double>(after) - static_cast<double>(before);
}

void ResourcesWithSessions(benchmark::State& state) {
    if (!countsReadable()) return state.SkipWithError("no /proc here");
    auto sessionCount = static_cast<int>(state.range(0));
    for (auto _ : state) {
        auto before = ProcessCounts::now();
        std::vector<std::shared_ptr<kelvane::FixtureControl>> sessions;
        for (int i = 0; i < sessionCount; ++i) {
            sessions.push_back(openSession());
            if (!sessions.back()) return state.SkipWithError("a session did not open");
        }
        auto with = ProcessCounts::now();
        state.counters["threads"] = static_cast<double>(with.threads);
        state.counters["threads_added"] = difference(with.threads, before.threads);
        state.counters["descriptors_per_session"] = difference(with.descriptors, before.descriptors) / sessionCount;
        state.counters["resident_KiB_per_session"] = difference(with.resident, before.resident) / 1024 / sessionCount;
    }
}

// ZeroMQ closes a socket's connection on its own thread after the socket is closed, so the counts
// are taken once that has had time to happen.
ProcessCounts settledCounts() {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    return ProcessCounts::now();
}

void CreateDestroyCycles(benchmark::State& state) {
    if (!countsReadable()) return state.SkipWithError("no /proc here");
    for (auto _ : state) {
        auto before = settledCounts();
        for (int i = 0; i < cycles; ++i) {
            if (!openSession()) return state.SkipWithError("a session did not open");
        }
        auto after = settledCounts();
        state.counters["threads_change"] = difference(after.threads, before.threads);
        state.counters["descriptors_change"] = difference(after.descriptors, before.descriptors);
    }
}

BENCHMARK(IdleSessionCpu)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(ResourcesWithSessions)->Arg(1)->Arg(16)->Arg(256)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(CreateDestroyCycles)->Iterations(1)->Unit(benchmark::kSecond);

void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
    raiseDescriptorLimit();
    return kelvane::bench::runWithSimulator<SimulatorChild>(
        argc, argv, simulator, {"the session resource benchmarks", [](auto&) { openSession(); }});
}
