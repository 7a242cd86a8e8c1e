// The simulator inside the benchmark's process: one fixture on a free loopback port, served on a
// thread of its own until the object goes away. Google Benchmark's CPU time is the calling
// thread's, so the simulator's work does not count in it; a benchmark that counts the whole
// process's threads, descriptors or CPU time runs it as a process instead (simulator_child.hpp).
#pragma once

#include "rpc/rpc_client_wrapper.hpp"
#include "simulator.hpp"

#include <kelvane/Value.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace kelvane::bench {

class InProcessSimulator {
public:
    InProcessSimulator() : simulator_(options()), endpoint_(simulator_.endpoints().front()) {
        serving_ = std::thread([this] { simulator_.run([this] { return stopping_.load(); }); });
    }
    ~InProcessSimulator() {
        control_.reset();
        stopping_ = true;
        simulator_.wake();
        serving_.join();
    }
    InProcessSimulator(const InProcessSimulator&) = delete;
    InProcessSimulator& operator=(const InProcessSimulator&) = delete;

    const std::string& endpoint() const { return endpoint_; }  // "tcp://127.0.0.1:<port>"
    std::uint32_t port() const {
        return static_cast<std::uint32_t>(std::stoul(endpoint_.substr(endpoint_.rfind(':') + 1)));
    }

    // A "sim." control call through a client of its own; throws std::runtime_error on an error.
    Value control(std::string_view method, const Value& params) {
        if (!control_) control_ = RPCClientWrapper::initWithIP("127.0.0.1", port());
        std::optional<RpcError> error;
        Value reply = control_->call(std::string(method), params, nullptr, &error);
        if (error) throw std::runtime_error(std::string(method) + " failed: " + error->text());
        return reply;
    }

private:
    static sim::Options options() {
        sim::Options options;
        options.endpoints = {"tcp://127.0.0.1:*"};
        options.quiet = true;
        return options;
    }

    sim::Simulator simulator_;
    std::string endpoint_;
    std::atomic<bool> stopping_{false};
    std::thread serving_;
    std::shared_ptr<RPCClientWrapper> control_;
};

}  // namespace kelvane::bench
