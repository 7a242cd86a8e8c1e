// The error codes of a reply. JSON-RPC 2.0 keeps -32768 to -32000 for itself: a controller
// answers with its predefined codes or with one of the server-error block, -32099 to -32000.
// The client's own codes lie in -32199 to -32100, a block JSON-RPC gives to nobody, so no
// controller answers with one and a log or a trace tells the client's verdict from the
// controller's answer by the code alone.
#pragma once

namespace kelvane::jsonrpc {

// Codes a controller answers with for a request it cannot serve.
inline constexpr int parseError = -32700;
inline constexpr int invalidRequestError = -32600;
inline constexpr int methodNotFoundError = -32601;
inline constexpr int invalidParamsError = -32602;

// A controller's own errors (a bus error, a refused request) take codes from this block.
constexpr bool isServerError(int code) { return code >= -32099 && code <= -32000; }

// Codes the client puts in a call's error slot when the controller gave no answer.
inline constexpr int timeoutError = -32100;
inline constexpr int notConnectedError = -32101;
inline constexpr int clientClosedError = -32102;

}  // namespace kelvane::jsonrpc
