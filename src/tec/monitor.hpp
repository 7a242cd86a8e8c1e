// Stopping a session's TEC workers when the session is closed.
#pragma once

#include <kelvane/FixtureControl.hpp>

#include "platform/worker_thread.hpp"

#include <memory>
#include <vector>

namespace kelvane::tec {

// Cancels the workers, which ends their pauses at once, and waits until each has ended; from a
// worker of `session` (a clock or log sink the session calls on that thread) it does not wait,
// which would be for itself. Takes no lock of the session.
void stopWorkers(const std::vector<std::shared_ptr<WorkerThread>>& workers,
                 const FixtureControl& session);

}  // namespace kelvane::tec
