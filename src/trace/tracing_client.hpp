// TracingClient: wraps any controller client and writes one JSON line per call to a trace file,
// so a station engineer can read a fixture's whole conversation afterwards and replay it on a
// desk (kelvane-sim --replay). See docs/trace.md for the line format.
//
// The wrapped client decides how each call ends and says so in its error (RpcError::kind); the
// trace records that decision and works nothing out again from error codes.
#pragma once

#include <kelvane/Platform.hpp>
#include <kelvane/RpcClient.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace kelvane {

class TracingClient final : public RpcClient {
public:
    // Calls are stamped with `clock`: its wall time for the line's time, its steady time for the
    // seconds since the trace's first call and for the duration. `endpoint` ("tcp://IP:PORT")
    // names the controller on every line.
    TracingClient(std::shared_ptr<RpcClient> traced, std::shared_ptr<TraceWriter> trace, std::shared_ptr<Clock> clock,
                  std::string endpoint);

    // The wrapped client's answer and error, unchanged. Its line is written before returning;
    // a line that cannot be written is lost and the call is not disturbed.
    Value call(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) override;
    void close() override;

private:
    struct Call;
    void record(const Call& call) noexcept;
    std::string line(const Call& call);

    const std::shared_ptr<RpcClient> traced_;
    const std::shared_ptr<TraceWriter> trace_;
    const std::shared_ptr<Clock> clock_;
    const std::string endpoint_;
    // Calls are numbered as the wrapped client numbers its requests: from 1, in the order they
    // come in, so a call's number is its request id on the wire unless calls overlap.
    std::atomic<std::int64_t> nextId_{1};
};

// "2026-11-22T23:50:04.123Z": UTC with milliseconds.
std::string isoTime(double secondsSince1970);

}  // namespace kelvane
