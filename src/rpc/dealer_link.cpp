#include "rpc/dealer_link.hpp"

#include <zmq_addon.hpp>

#include <poll.h>

#include <algorithm>
#include <vector>

namespace kelvane {
namespace {

constexpr int reconnectIntervalMs = 100;
// Messages ZeroMQ keeps for the client before it stops reading the connection. Nothing reads the
// socket between calls, so this (times the frame limit) is all a peer sending unasked can cost.
constexpr int receiveHighWaterMark = 8;

int millisecondsUntil(DealerLink::Deadline deadline) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, 1'000'000));
}

}  // namespace

DealerLink::DealerLink(zmq::context_t& context, std::string endpoint, std::size_t maxMessageBytes)
    : endpoint_(std::move(endpoint)), socket_(context, zmq::socket_type::dealer) {
    socket_.set(zmq::sockopt::linger, 0);
    socket_.set(zmq::sockopt::immediate, 1);
    socket_.set(zmq::sockopt::reconnect_ivl, reconnectIntervalMs);
    socket_.set(zmq::sockopt::maxmsgsize, static_cast<std::int64_t>(maxMessageBytes));
    socket_.set(zmq::sockopt::rcvhwm, receiveHighWaterMark);
}

void DealerLink::connect() { socket_.connect(endpoint_); }

void DealerLink::reconnect() {
    zmq_disconnect(socket_.handle(), endpoint_.c_str());
    zmq_connect(socket_.handle(), endpoint_.c_str());
}

bool DealerLink::send(const std::string& text) {
    try {
        auto delimiterFlags = zmq::send_flags::sndmore | zmq::send_flags::dontwait;
        if (!socket_.send(zmq::message_t(), delimiterFlags)) return false;
        // The delimiter went out, so ZeroMQ takes the body of the same message at once.
        socket_.send(zmq::buffer(text), zmq::send_flags::dontwait);
        return true;
    } catch (const zmq::error_t&) {
        return false;
    }
}

// Polls the socket's own notification descriptor beside the wake pipe, with as few system calls
// as a blocking receive makes: they are most of what a round trip costs beyond the network.
bool DealerLink::waitForTraffic(Deadline deadline) {
    try {
        // The descriptor only tells us to look again, and a send may already have taken its
        // signal; so the socket's events are asked first.
        if (socket_.get(zmq::sockopt::events) & ZMQ_POLLIN) return true;
        pollfd fds[] = {{socket_.get(zmq::sockopt::fd), POLLIN, 0}, {wake_.readEnd(), POLLIN, 0}};
        int ready = ::poll(fds, 2, millisecondsUntil(deadline));
        if (ready < 0) return false;  // a signal: the reader's loop looks again
        if (fds[1].revents & POLLIN) {
            // Drained only now: anything queued later is seen by the reader's next look.
            wake_.drain();
            return false;
        }
        return fds[0].revents & POLLIN;  // a receive tells whether it was a reply
    } catch (const zmq::error_t&) {
        return false;  // the caller's deadline still bounds the wait
    }
}

std::optional<jsonrpc::Reply> DealerLink::receive() {
    std::vector<zmq::message_t> parts;
    try {
        auto received = zmq::recv_multipart(socket_, std::back_inserter(parts), zmq::recv_flags::dontwait);
        if (!received) return std::nullopt;
    } catch (const zmq::error_t&) {
        return std::nullopt;
    }
    if (parts.size() != 2 || parts[0].size() != 0) return std::nullopt;
    return jsonrpc::decodeReply(parts[1].to_string_view());
}

}  // namespace kelvane
