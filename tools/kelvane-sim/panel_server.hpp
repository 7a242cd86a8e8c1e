// The live panel (kelvane-sim --http): a page showing every fixture, its event stream, and the
// control surface over HTTP. It serves on threads of its own, so a slow browser never delays a
// controller reply, and it never touches a fixture itself: reads and controls run on the
// serving thread, and state changes come to it through the StateFeed the Server tells.
#pragma once

#include "control_request.hpp"
#include "server.hpp"
#include "state_feed.hpp"

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

namespace kelvane::sim {

class PanelServer {
public:
    // Before server.run(), and destroyed after it: binds `address`:`port` (0: a free port) and starts serving. Throws
    // std::runtime_error naming the address when it cannot bind.
    PanelServer(Server& server, const std::string& address, int port);
    // Stops serving; waits for the requests under way.
    ~PanelServer();

    PanelServer(const PanelServer&) = delete;
    PanelServer& operator=(const PanelServer&) = delete;

    // "http://ADDRESS:PORT/", with the port bound.
    std::string url() const;

private:
    void addRoutes();

    Server& server_;
    const int fixtures_;
    PanelAddress address_;
    StateFeed feed_;
    std::unique_ptr<httplib::Server> http_;
    std::atomic<bool> listenReturned_{false};
    std::thread thread_;
};

}  // namespace kelvane::sim
