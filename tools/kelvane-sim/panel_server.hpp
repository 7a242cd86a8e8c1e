// The live panel (kelvane-sim --http): a page showing every fixture, its event stream, and the
// control surface over HTTP. The HTTP server serves on a thread of its own, so a slow browser
// never delays a controller reply, and it never touches a fixture itself: reads and controls run
// on the serving thread, and state changes come to it through the StateFeed the Server tells.
#pragma once

#include "http_server.hpp"
#include "server.hpp"
#include "state_feed.hpp"

#include <string>

namespace kelvane::sim {

class PanelServer {
public:
    // Before server.run(), and destroyed after it: binds `address`:`port` (0: a free port) and starts serving. Throws
    // std::runtime_error naming the address when it cannot bind.
    PanelServer(Server& server, const std::string& address, int port);

    // "http://ADDRESS:PORT/", with the port bound.
    std::string url() const;

private:
    web::Routes routes();

    Server& server_;
    const int fixtures_;
    StateFeed feed_;
    web::HttpServer http_;  // last: it stops serving before the rest goes
};

}  // namespace kelvane::sim
