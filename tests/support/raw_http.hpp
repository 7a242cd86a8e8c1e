// A client connection to a loopback HTTP server made of a plain socket, for tests that behave
// badly on purpose: half a request, a byte now and then, a stream never read.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane::testing {

class RawHttpConnection {
public:
    // Connects to 127.0.0.1:`port`; a `receiveBuffer` (bytes) is set before connecting, so a
    // client that stops reading stalls the server's writes soon. Throws std::runtime_error.
    explicit RawHttpConnection(int port, int receiveBuffer = 0);
    ~RawHttpConnection();

    RawHttpConnection(const RawHttpConnection&) = delete;
    RawHttpConnection& operator=(const RawHttpConnection&) = delete;

    // False once the server has closed.
    bool send(std::string_view bytes);
    // What arrived within `wait` ("" for nothing), or nullopt once the server closed.
    std::optional<std::string> receive(std::chrono::milliseconds wait);
    // Reads and discards until the server closes: false when it has not within `wait`.
    bool closesWithin(std::chrono::milliseconds wait);
    // Sends `request` and reads the answer's header (and its body, by Content-Length) as it
    // arrives within `wait`: its status code, 0 without one.
    int exchange(std::string_view request, std::chrono::milliseconds wait);

private:
    int socket_ = -1;
};

}  // namespace kelvane::testing
