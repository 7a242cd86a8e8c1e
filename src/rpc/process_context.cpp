#include "rpc/process_context.hpp"

namespace kelvane {
namespace {

// Three sockets a client (its DEALER and the two ends of its monitor), with room to spare.
constexpr int maxSockets = 4096;

}  // namespace

// Deliberately leaked. Terminating a context waits until every socket in it is closed, so a
// static destructor doing it would hang a host that exits with handles open, and clients
// destroyed by later static destructors would find it gone. The operating system reclaims its
// threads and descriptors at exit; every socket has LINGER 0, so nothing waits to be sent.
zmq::context_t& processContext() {
    static auto* const context = [] {
        auto* made = new zmq::context_t(1);
        made->set(zmq::ctxopt::max_sockets, maxSockets);
        return made;
    }();
    return *context;
}

}  // namespace kelvane
