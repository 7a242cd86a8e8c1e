// The client side of a remote procedure call to the fixture controller board (or a scanner).
#pragma once

#include <kelvane/Value.hpp>
#include <kelvane/export.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kelvane {

// An error that a call put in its error slot: from the controller's "error" member,
// or one of the client's own (see docs/protocol.md for the codes).
struct KELVANE_API RpcError {
    // Who ended the call. A client that gives up on its own says why where it decides so; the
    // code alone cannot tell, since a controller may answer with any code.
    enum class Kind {
        controller,    // the controller's "error" member
        timeout,       // no reply within the call's wait
        notReachable,  // no connection, or the connection was lost while waiting
        closed,        // the client had been closed
    };

    int code = 0;
    std::string message;
    Kind kind = Kind::controller;

    // The error's printed text, as logs and results show it: "<message> (code <code>)".
    std::string text() const;
};

// Where a call may put its error. A null pointer means the caller gave no slot.
using RpcErrorSlot = std::optional<RpcError>*;

// A named call with positional and keyword arguments. A null result means no reply.
// Implementations are safe to call from several threads at once.
class KELVANE_API RpcClient {
public:
    virtual ~RpcClient();

    // The one primitive: `args` is an array, `kwargs` an object or null (no keyword arguments).
    virtual Value call(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error) = 0;

    // Ends the client's use: calls under way and later calls fail at once with the "client
    // closed" error. Safe to call from any thread, more than once. The default does nothing.
    virtual void close();

    Value rpc(const std::string& method, RpcErrorSlot error);
    Value rpc(const std::string& method, const Value& args, RpcErrorSlot error);
    Value rpc(const std::string& method, const Value& args, const Value& kwargs, RpcErrorSlot error);
};

// A call through a client that does not exist does nothing: no reply and no error.
KELVANE_API Value callThrough(const std::shared_ptr<RpcClient>& client, const std::string& method, const Value& args,
                              const Value& kwargs, RpcErrorSlot error);

// Makes the client of a controller at an address and port.
using RpcClientFactory = std::function<std::shared_ptr<RpcClient>(const std::string& ip, std::uint32_t port)>;

}  // namespace kelvane
