// Stopping a session's TEC workers when the session is closed.
#pragma once

#include <kelvane/FixtureControl.hpp>

namespace kelvane::tec {

// Cancels every worker of the session, switched off or not, and waits until each has ended,
// except one running on the calling thread. Takes no lock of the session while it waits.
void stopWorkers(FixtureControl& session);

}  // namespace kelvane::tec
