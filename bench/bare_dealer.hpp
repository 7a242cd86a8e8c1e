// The yardstick the library's transport is measured against: a plain cppzmq DEALER making the
// same JSON-RPC round trip to the simulator, with nothing of the library's call matching.
#pragma once

#include <kelvane/protocol/json_rpc.hpp>
#include <kelvane/protocol/methods.hpp>

#include <benchmark/benchmark.h>
#include <zmq.hpp>
#include <zmq_addon.hpp>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace kelvane::bench {

// Round trips of "server.mode" on a socket of this benchmark thread's own, ids taken from `ids`.
inline void bareDealerRoundTrips(benchmark::State& state, const std::string& endpoint, std::atomic<std::int64_t>& ids) {
    zmq::context_t context{1};
    zmq::socket_t dealer{context, zmq::socket_type::dealer};
    dealer.set(zmq::sockopt::linger, 0);
    dealer.connect(endpoint);
    const std::string method(methods::serverMode);
    for (auto _ : state) {
        std::string request = jsonrpc::encodeRequest({ids.fetch_add(1), method, Value::array(), nullptr});
        dealer.send(zmq::message_t(), zmq::send_flags::sndmore);
        dealer.send(zmq::buffer(request), zmq::send_flags::none);
        std::vector<zmq::message_t> reply;
        if (!zmq::recv_multipart(dealer, std::back_inserter(reply))) {
            state.SkipWithError("no reply");
            break;
        }
        benchmark::DoNotOptimize(reply);
    }
}

}  // namespace kelvane::bench
