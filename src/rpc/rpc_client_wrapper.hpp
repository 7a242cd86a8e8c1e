// RPCClientWrapper: the ZeroMQ transport to a controller board (see docs/protocol.md).
//
// One DEALER socket per client. Callers on any thread may call at once: the caller that finds
// the socket free sends and receives on it for everyone until its own reply is in, and hands
// each reply to the caller with that id, so concurrent calls never receive each other's answers
// and a lone call makes its round trip without waking another thread. Destroying the client
// fails the calls still waiting (with clientClosedError) and returns once they have left.
#pragma once

#include <kelvane/RpcClient.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kelvane {

class RPCClientWrapper final : public RpcClient {
public:
    struct Options {
        // Wait for a call that gives no "timeout_ms".
        std::chrono::milliseconds defaultTimeout{3000};
        // Added to a call's "timeout_ms", so the controller's own time-out answers first.
        std::chrono::milliseconds timeoutMargin{500};
        // How long after creation a call waits for the first connection to the controller.
        std::chrono::milliseconds connectGrace{1000};
        // ZeroMQ's message size limit: a peer that sends a larger frame is disconnected (calls in
        // flight fail as for a lost connection), and the client connects anew.
        std::size_t maxReplyBytes = std::size_t{1} << 20;
    };

    // A client connecting (in the background) to tcp://ip:port; null when the address is not
    // one ZeroMQ can connect to.
    static std::shared_ptr<RPCClientWrapper> initWithIP(const std::string& ip, std::uint32_t port, Options options);
    static std::shared_ptr<RPCClientWrapper> initWithIP(const std::string& ip, std::uint32_t port);
    // Makes clients with these options, for a Platform's `connect`.
    static RpcClientFactory factory(Options options);

    ~RPCClientWrapper() override;

    Value call(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) override;

    // Fails the calls still waiting and every later call with clientClosedError.
    void close() override;

    // Whether the connection to the controller is established now.
    bool isConnected() const;

    struct Impl;

private:
    explicit RPCClientWrapper(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace kelvane
