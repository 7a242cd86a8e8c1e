// The TCP port every fixture controller listens on for the library.
#pragma once

#include <kelvane/kelvane.h>

namespace kelvane {

inline constexpr int controllerPort = 7805;

// Hosts written in C see the port through the public header's macro.
static_assert(controllerPort == KELVANE_CONTROLLER_PORT);

}  // namespace kelvane
