#include "raw_http.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace kelvane::testing {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

RawHttpConnection::RawHttpConnection(int port, int receiveBuffer) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
    if (receiveBuffer > 0) ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (socket_ < 0 || ::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        if (socket_ >= 0) ::close(socket_);
        throw std::runtime_error("cannot connect to 127.0.0.1:" + std::to_string(port));
    }
}

RawHttpConnection::~RawHttpConnection() { ::close(socket_); }

bool RawHttpConnection::send(std::string_view bytes) {
    while (!bytes.empty()) {
        auto sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

std::optional<std::string> RawHttpConnection::receive(milliseconds wait) {
    pollfd ready{socket_, POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(wait.count())) <= 0) return "";
    char bytes[65536];
    auto got = ::recv(socket_, bytes, sizeof bytes, 0);
    if (got <= 0) return std::nullopt;
    return std::string(bytes, static_cast<std::size_t>(got));
}

bool RawHttpConnection::closesWithin(milliseconds wait) {
    for (auto deadline = Clock::now() + wait; Clock::now() < deadline;) {
        if (!receive(milliseconds(10))) return true;
    }
    return false;
}

int RawHttpConnection::exchange(std::string_view request, milliseconds wait) {
    if (!send(request)) return 0;
    std::string answer;
    for (auto deadline = Clock::now() + wait; Clock::now() < deadline;) {
        auto more = receive(milliseconds(10));
        if (!more) break;
        answer += *more;
        auto headerEnd = answer.find("\r\n\r\n");
        if (headerEnd == std::string::npos) continue;
        auto length = answer.find("Content-Length: ");
        auto body = length < headerEnd ? std::strtoul(answer.c_str() + length + 16, nullptr, 10) : 0;
        if (answer.size() >= headerEnd + 4 + body) break;
    }
    return answer.starts_with("HTTP/1.1 ") ? std::atoi(answer.c_str() + 9) : 0;
}

}  // namespace kelvane::testing
