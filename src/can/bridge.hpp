// How the CAN code reaches the fixture's CAN bridge: the controller board's client, time, the
// process log and the TEC monitor log of a slot. A session makes one for each operation from its
// own state, so nothing here outlives the call it serves.
#pragma once

#include <kelvane/Platform.hpp>
#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kelvane::can {

// Appends a line to the TEC monitor log of a slot.
using MonitorLog = std::function<void(std::int32_t slot, const std::string& text)>;

struct Bridge {
    // Held by value: a host that replaces the session's client while a worker is inside an
    // exchange cannot destroy the client under it. Null: every call gives no reply.
    std::shared_ptr<RpcClient> client;
    Clock& clock;
    LogSink& log;
    MonitorLog monitorLog;

    // A CAN method call; the controller board is given 3000 ms for every one of them.
    Value call(std::string_view method, const Value& args, RpcErrorSlot error) const;
};

}  // namespace kelvane::can
