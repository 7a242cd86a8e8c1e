// The one ZeroMQ context of the process, shared by every client: a context costs two threads and
// several descriptors, so one per handle would soon exhaust a host's descriptor limit.
#pragma once

#include <zmq.hpp>

namespace kelvane {

// Made on first use and never destroyed (see process_context.cpp).
zmq::context_t& processContext();

}  // namespace kelvane
