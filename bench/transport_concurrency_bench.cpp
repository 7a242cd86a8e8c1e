// Several threads calling through one RPCClientWrapper, against one simulator running in the
// benchmark's process:
// - FourSlowCallsTogether: four threads each make a call the simulator answers after 10 ms; the
//   real time per iteration is the wall time of the four together (40 ms if they were serialised).
// - LibraryCallsFrom8Threads / BareSocketsFrom8Threads: "server.mode" calls per second from eight
//   threads through one client, against eight threads with a bare DEALER socket each.
#include "bare_dealer.hpp"
#include "rpc/rpc_client_wrapper.hpp"
#include "in_process_simulator.hpp"
#include "simulator_main.hpp"

#include <kelvane/protocol/json_rpc.hpp>
#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/sim_methods.hpp>

#include <benchmark/benchmark.h>
#include <zmq.hpp>
#include <zmq_addon.hpp>

#include <atomic>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace {

using kelvane::bench::InProcessSimulator;

constexpr int slowReplyMs = 10;
InProcessSimulator* simulator = nullptr;
std::shared_ptr<kelvane::RPCClientWrapper> shared;
std::atomic<std::int64_t> bareIds{0};

void call(benchmark::State& state, const std::string& method, const kelvane::Value& args) {
    std::optional<kelvane::RpcError> error;
    kelvane::Value reply = shared->rpc(method, args, &error);
    if (reply.is_null()) state.SkipWithError((method + " gave no reply").c_str());
    benchmark::DoNotOptimize(reply);
}

void FourSlowCallsTogether(benchmark::State& state) {
    const std::string method(kelvane::methods::getFanSpeed);
    for (auto _ : state) call(state, method, kelvane::Value::array({1}));
}

void LibraryCallsFrom8Threads(benchmark::State& state) {
    const std::string method(kelvane::methods::serverMode);
    for (auto _ : state) call(state, method, kelvane::Value::array());
    state.SetItemsProcessed(state.iterations());
}

void BareSocketsFrom8Threads(benchmark::State& state) {
    kelvane::bench::bareDealerRoundTrips(state, simulator->endpoint(), bareIds);
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(FourSlowCallsTogether)->Threads(4)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(LibraryCallsFrom8Threads)->Threads(8)->UseRealTime();
BENCHMARK(BareSocketsFrom8Threads)->Threads(8)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    auto prepare = [](InProcessSimulator& sim) {
        namespace m = kelvane::methods;
        sim.control(m::sim::script, kelvane::Value::array(
                                        {{{"method", m::getFanSpeed}, {"reply", "slow"}, {"delay_ms", slowReplyMs}}}));
        shared = kelvane::RPCClientWrapper::initWithIP("127.0.0.1", sim.port());
    };
    return kelvane::bench::runWithSimulator<InProcessSimulator>(
        argc, argv, simulator, {"the concurrency benchmarks", prepare, [] { shared.reset(); }});
}
