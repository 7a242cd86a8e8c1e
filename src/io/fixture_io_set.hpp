// What every "vantrel.fixture_io_set" call shares, whether it sets one line or the fixture's
// initial IO state.
#pragma once

#include <kelvane/Value.hpp>
#include <kelvane/protocol/json_rpc.hpp>

namespace kelvane::io {

// Switching IO lines can keep the controller busy far beyond the client's default timeout.
inline constexpr int ioSetTimeoutMs = 20000;

inline Value ioSetKwargs() { return jsonrpc::timeoutKwargs(ioSetTimeoutMs); }

}  // namespace kelvane::io
