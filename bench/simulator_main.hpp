// The main() of a benchmark run against a kelvane-sim: starts the simulator, runs the benchmarks
// the command line selects, and reports a failure to start in one line.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>
#include <functional>

namespace kelvane::bench {

// `Simulator`: InProcessSimulator or SimulatorChild.
template <class Simulator>
struct SimulatorRun {
    const char* what;                                  // "the transport benchmarks", for the failure line
    std::function<void(Simulator&)> before{};          // once the simulator listens
    std::function<void()> after{};                     // while it still runs
    benchmark::BenchmarkReporter* reporter = nullptr;  // the console's when null
};

// `simulator` points at the running simulator while the benchmarks run.
template <class Simulator>
int runWithSimulator(int argc, char** argv, Simulator*& simulator, const SimulatorRun<Simulator>& run) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    try {
        Simulator sim;
        simulator = &sim;
        if (run.before) run.before(sim);
        benchmark::RunSpecifiedBenchmarks(run.reporter);
        if (run.after) run.after();
        simulator = nullptr;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "cannot run %s: %s\n", run.what, failure.what());
        return 1;
    }
    benchmark::Shutdown();
    return 0;
}

}  // namespace kelvane::bench
