// One "server.mode" round trip through RPCClientWrapper, against the same round trip made with
// a bare DEALER socket sending the same JSON text, both to one simulator running in the
// benchmark's process. The ratio of the two is what the client's own machinery (locking, id
// matching, JSON, waiting) costs. The library's round trip is also made through the tracing
// client, a trace written: that ratio is what tracing costs.
#include "bare_dealer.hpp"
#include "rpc/rpc_client_wrapper.hpp"
#include "in_process_simulator.hpp"
#include "simulator_main.hpp"

#include <kelvane/Platform.hpp>
#include <kelvane/protocol/json_rpc.hpp>
#include <kelvane/protocol/methods.hpp>

#include <benchmark/benchmark.h>
#include <zmq.hpp>
#include <zmq_addon.hpp>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace {

using kelvane::bench::InProcessSimulator;

constexpr const char* libraryRun = "LibraryRoundTrip";
constexpr const char* bareRun = "BareDealerRoundTrip";
constexpr const char* tracedRun = "TracedLibraryRoundTrip";

InProcessSimulator* simulator = nullptr;

const std::filesystem::path tracePath = std::filesystem::temp_directory_path() / "kelvane-transport-bench.trace";

std::shared_ptr<kelvane::RpcClient> makeClient(bool traced) {
    kelvane::Platform platform = kelvane::Platform::defaults();
    platform.trace = traced ? kelvane::traceFile(tracePath, std::uint64_t{64} << 20) : nullptr;
    return platform.clientFor("127.0.0.1", simulator->port());
}

void libraryRoundTrips(benchmark::State& state, bool traced) {
    auto client = makeClient(traced);
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

void LibraryRoundTrip(benchmark::State& state) { libraryRoundTrips(state, false); }
void TracedLibraryRoundTrip(benchmark::State& state) { libraryRoundTrips(state, true); }

void BareDealerRoundTrip(benchmark::State& state) {
    std::atomic<std::int64_t> ids{1};
    kelvane::bench::bareDealerRoundTrips(state, simulator->endpoint(), ids);
}

BENCHMARK(LibraryRoundTrip)->Name(libraryRun)->UseRealTime();
BENCHMARK(BareDealerRoundTrip)->Name(bareRun)->UseRealTime();
BENCHMARK(TracedLibraryRoundTrip)->Name(tracedRun)->UseRealTime();

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

    void printRatios() const {
        printRatio("library/bare", libraryRun, bareRun, 1.2);
        printRatio("traced/untraced", tracedRun, libraryRun, 1.1);
    }

private:
    void printRatio(const char* label, const char* run, const char* base, double aim) const {
        double measured = typical(run);
        double reference = typical(base);
        if (measured <= 0 || reference <= 0) return;
        std::printf("%s round-trip ratio: %.3f (aim: at most %.1f)\n", label, measured / reference, aim);
    }

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
    RatioReporter reporter;
    auto finish = [&reporter] {
        reporter.printRatios();
        std::filesystem::remove(tracePath);
        std::filesystem::remove(std::filesystem::path(tracePath).concat(".1"));
    };
    return kelvane::bench::runWithSimulator<InProcessSimulator>(
        argc, argv, simulator, {"the transport benchmarks", nullptr, finish, &reporter});
}
