// ControllerClient: the session's client of its controller board, and which client that is.
//
// connect() makes the same chain for every session, C devices and C++ hosts alike:
//   TracingClient (trace/tracing_client.hpp): one trace line per call; only when the platform
//     traces (its `trace`, a C device's trace option, or KELVANE_TRACE);
//   RPCClientWrapper (rpc/rpc_client_wrapper.hpp): JSON-RPC over a ZeroMQ DEALER socket, waiting
//     the platform's callTimeout for a call that gives no "timeout_ms".
// Two seams replace a link: a platform's `connect` makes the transport in RPCClientWrapper's
// place (the tests' fake controller), and a host may put a whole client of its own in place
// through the session's fixtureControlClient property (set()).
#pragma once

#include <kelvane/Platform.hpp>
#include <kelvane/RpcClient.hpp>

#include "platform/guarded_value.hpp"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kelvane {

// Every member is safe from any thread: host threads and TEC workers use one at once.
class ControllerClient {
public:
    // Holds the chain for the controller at ip:port; none for a port no TCP connection can use
    // (outside 1..65535), which then fails as a silent controller does, without waiting for the
    // transport's connect grace.
    void connect(const Platform& platform, const std::string& ip, std::uint32_t port);

    // The client held now. A caller that keeps it may use it while the session's client is
    // replaced meanwhile: it is not destroyed under the caller.
    std::shared_ptr<RpcClient> get() const { return client_.get(); }
    void set(std::shared_ptr<RpcClient> client) { client_.set(std::move(client)); }

    // A call through the client held now; with none, no reply and no error.
    Value call(std::string_view method, const Value& args = Value::array(), const Value& kwargs = nullptr,
               RpcErrorSlot error = nullptr) const;

    // Ends the session's use of its controller: the client held now is closed, so calls under
    // way and later ones fail at once, and closed() turns true, so polls stop at their next step.
    void close();
    bool closed() const { return closed_; }

private:
    GuardedValue<std::shared_ptr<RpcClient>> client_;
    std::atomic<bool> closed_{false};
};

// The chain connect() holds (without the port check); Platform::clientFor gives it to any host.
std::shared_ptr<RpcClient> controllerClientChain(const Platform& platform, const std::string& ip, std::uint32_t port);

}  // namespace kelvane
