#include "rpc/rpc_client_wrapper.hpp"

#include "rpc/connection_watcher.hpp"
#include "rpc/dealer_link.hpp"
#include <kelvane/protocol/json_rpc.hpp>
#include "rpc/pending_calls.hpp"
#include "rpc/process_context.hpp"

#include <algorithm>
#include <atomic>

namespace kelvane {
namespace {

using SteadyClock = std::chrono::steady_clock;

// Longer time limits (jsonrpc::timeoutKey) are cut to this, so the deadline arithmetic cannot overflow.
constexpr std::chrono::milliseconds longestCallTimeout = std::chrono::hours(24);

using Kind = RpcError::Kind;

const std::string closedText = "RPC client closed";
const RpcError closedError{jsonrpc::clientClosedError, closedText, Kind::closed};

std::chrono::milliseconds callTimeout(const Value& kwargs, const RPCClientWrapper::Options& options) {
    if (kwargs.is_object()) {
        auto timeout = kwargs.find(jsonrpc::timeoutKey);
        if (timeout != kwargs.end() && timeout->is_number() && integerValue(*timeout) >= 0) {
            auto asked = std::min<long long>(integerValue(*timeout), longestCallTimeout.count());
            return std::chrono::milliseconds(asked) + options.timeoutMargin;
        }
    }
    return options.defaultTimeout;
}

}  // namespace

// The DEALER socket has no thread of its own: a caller that finds the turn to read free takes
// it, sends what is queued, and reads replies (handing each to the caller it belongs to) until
// its own reply is in; then another waiting caller takes over. A lone caller so does its whole
// round trip on its own thread, with no hand-over to another thread. Only the connection state
// comes from another thread: the process's one monitor thread, shared by every client.
struct RPCClientWrapper::Impl {
    Impl(std::string endpoint, Options options)
        : options(options), link(processContext(), std::move(endpoint), options.maxReplyBytes) {}

    const Options options;
    const SteadyClock::time_point created = SteadyClock::now();
    std::atomic<std::int64_t> nextId{1};
    // Set by the watcher for the reader, which connects anew at its next step.
    std::atomic<bool> reconnectWanted{false};

    DealerLink link;
    PendingCalls calls{closedError};
    ConnectionWatcher watcher{ConnectionMonitors::process(),
                              link.handle(),
                              {[this] { failCallsInFlight(); }, [this] { return reconnectAfterProtocolError(); }}};

    void open() { link.connect(); }

    void refuseCalls() {
        calls.close();
        watcher.stopWaiting();
        link.wake();
    }

    // Refuses calls, waits until all callers have left, then stops the watcher.
    void close() {
        refuseCalls();
        calls.closeAndWaitForCallers();
        watcher.stop();
    }

    // The call's whole life: every outcome a call can have is decided here, and each failure
    // carries its kind from here.
    Value call(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) {
        auto fail = [&](RpcError failure) -> Value {
            if (error) *error = std::move(failure);
            return nullptr;
        };
        auto id = nextId.fetch_add(1);
        auto timeout = callTimeout(kwargs, options);
        auto deadline = SteadyClock::now() + timeout;
        std::string request = jsonrpc::encodeRequest({id, method, args, kwargs});

        CallerPresence presence(calls);
        if (!presence.entered()) return fail(closedError);
        // Callers wait for the first connection only during the grace period after creation;
        // later, a controller that is away makes calls fail at once.
        if (!watcher.waitForConnection(std::min(deadline, created + options.connectGrace))) {
            if (calls.closed()) return fail(closedError);
            return fail(notReachable());
        }
        std::optional<PendingCalls::Outcome> outcome;
        {
            Registration registration(calls, id);
            if (calls.add(id, std::move(request))) link.wake();
            awaitReply(id, deadline);
            outcome = calls.remove(id);
        }
        if (!outcome) {
            return fail({jsonrpc::timeoutError, method + " timed out after " + std::to_string(timeout.count()) + " ms",
                         Kind::timeout});
        }
        if (outcome->error) {
            if (error) *error = std::move(outcome->error);
            return nullptr;
        }
        return std::move(outcome->result);
    }

    // Returns once call `id` has its outcome or its deadline has passed.
    void awaitReply(std::int64_t id, SteadyClock::time_point deadline) {
        while (calls.wait(id, deadline) == PendingCalls::Wait::readerTurn) {
            ReaderTurn turn(calls);
            readUntilAnswered(id, deadline);
        }
    }

    // With the turn to read: sends what is queued and hands out replies until call `id` has its
    // outcome (closing gives every call one) or its deadline has passed.
    void readUntilAnswered(std::int64_t id, SteadyClock::time_point deadline) {
        while (!calls.answered(id)) {
            if (reconnectWanted.exchange(false)) link.reconnect();
            std::vector<std::int64_t> unsent;
            for (auto& request : calls.takeUnsent()) {
                if (!link.send(request.text)) unsent.push_back(request.id);
            }
            std::optional<jsonrpc::Reply> reply;
            if (unsent.empty() && link.waitForTraffic(deadline)) reply = link.receive();
            for (auto unsentId : unsent) {
                calls.complete(unsentId, {nullptr, notReachable()});
            }
            if (reply) calls.complete(reply->id, {std::move(reply->result), std::move(reply->error)});
            if (SteadyClock::now() >= deadline) return;
        }
    }

    // From the watcher. Requests sent before the controller went away will never be answered.
    void failCallsInFlight() {
        calls.failAll({jsonrpc::notConnectedError, "connection to " + link.endpoint() + " lost", Kind::notReachable});
        link.wake();
    }

    // From the watcher. The socket is the reader's: a reader connects anew at its next step;
    // with none, the watcher takes the turn to read for the moment it takes.
    bool reconnectAfterProtocolError() {
        if (!calls.tryTakeReaderTurn()) {
            reconnectWanted = true;
            link.wake();
            return false;
        }
        ReaderTurn turn(calls);
        reconnectWanted = false;
        link.reconnect();
        return true;
    }

    RpcError notReachable() const {
        return {jsonrpc::notConnectedError, "controller at " + link.endpoint() + " is not reachable",
                Kind::notReachable};
    }
};

std::shared_ptr<RPCClientWrapper> RPCClientWrapper::initWithIP(const std::string& ip, std::uint32_t port,
                                                               Options options) {
    try {
        auto impl = std::make_unique<Impl>("tcp://" + ip + ":" + std::to_string(port), options);
        impl->open();
        return std::shared_ptr<RPCClientWrapper>(new RPCClientWrapper(std::move(impl)));
    } catch (const std::exception&) {
        return nullptr;
    }
}

std::shared_ptr<RPCClientWrapper> RPCClientWrapper::initWithIP(const std::string& ip, std::uint32_t port) {
    return initWithIP(ip, port, Options{});
}

RpcClientFactory RPCClientWrapper::factory(Options options) {
    return [options](const std::string& ip, std::uint32_t port) -> std::shared_ptr<RpcClient> {
        return initWithIP(ip, port, options);
    };
}

RPCClientWrapper::RPCClientWrapper(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

RPCClientWrapper::~RPCClientWrapper() {
    try {
        impl_->close();
    } catch (...) {
        // Closing only fails when the system is out of resources; the sockets still go with impl_.
    }
}

void RPCClientWrapper::close() { impl_->refuseCalls(); }

bool RPCClientWrapper::isConnected() const { return impl_->watcher.isConnected(); }

Value RPCClientWrapper::call(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) {
    return impl_->call(method, args, kwargs, error);
}

}  // namespace kelvane
