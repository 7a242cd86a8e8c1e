// One "server.mode" round trip through RPCClientWrapper, against the same round trip made with
// a bare DEALER socket sending the same JSON text, both to one kelvane-sim. The ratio of the two
// is what the client's own machinery (locking, id matching, JSON, waiting) costs.
#include "bare_dealer.hpp"
#include "rpc/json_rpc.hpp"
#include "rpc/methods.hpp"
#include "rpc/rpc_client_wrapper.hpp"
#include "simulator_process.hpp"

#include <benchmark/benchmark.h>
#include <zmq.hpp>
#include <zmq_addon.hpp>

#include <atomic>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace {

using kelvane::testing::SimulatorProcess;

constexpr const char* libraryRun = "LibraryRoundTrip";
constexpr const char* bareRun = "BareDealerRoundTrip";

SimulatorProcess* simulator = nullptr;

void LibraryRoundTrip(benchmark::State& state) {
    auto client = kelvane::RPCClientWrapper::initWithIP("127.0.0.1", simulator->port());
    const std::string method(kelvane::methods::serverMode);
    for (auto _ : state) {
        std::optional<kelvane::RpcError> error;
        kelvane::Value reply = client->rpc(method, &error);
        if (reply.is_null()) {
            state.SkipWithError("server.mode gave no reply");
            break;
        }
        benchmark::DoNotOptimize(reply);
    }
}

void BareDealerRoundTrip(benchmark::State& state) {
    std::atomic<std::int64_t> ids{1};
    kelvane::bench::bareDealerRoundTrips(state, simulator->endpoint(), ids);
}

BENCHMARK(LibraryRoundTrip)->Name(libraryRun)->UseRealTime();
BENCHMARK(BareDealerRoundTrip)->Name(bareRun)->UseRealTime();

// Prints as usual and keeps each benchmark's real times, for the ratio line at the end: the
// median over repetitions when there are several (robust against a busy machine), else the mean.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs) {
            if (run.error_occurred) continue;
            auto& times = times_[run.run_name.function_name];
            if (run.run_type == Run::RT_Iteration) {
                times.iterations.push_back(run.GetAdjustedRealTime());
            }
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                times.median = run.GetAdjustedRealTime();
            }
        }
    }

    void printRatio() const {
        double library = typical(libraryRun);
        double bare = typical(bareRun);
        if (library <= 0 || bare <= 0) return;
        std::printf("library/bare round-trip ratio: %.3f (aim: at most 1.2)\n", library / bare);
    }

private:
    struct Times {
        std::vector<double> iterations;
        double median = 0;
    };

    double typical(const std::string& name) const {
        auto found = times_.find(name);
        if (found == times_.end()) return 0;
        const auto& times = found->second;
        if (times.median > 0) return times.median;
        if (times.iterations.empty()) return 0;
        return std::accumulate(times.iterations.begin(), times.iterations.end(), 0.0) /
               static_cast<double>(times.iterations.size());
    }

    std::map<std::string, Times> times_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    try {
        SimulatorProcess sim;
        simulator = &sim;
        RatioReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        reporter.printRatio();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "cannot run the transport benchmarks: %s\n", failure.what());
        return 1;
    }
    benchmark::Shutdown();
    return 0;
}
