// kelvanectl console: a page in the browser that drives and watches fixtures through the library,
// for a technician at the line. One FixtureDesk per fixture, and the page and its API served by
// the HTTP server the simulator's panel uses (tools/web); every API request must carry the
// console's AccessToken.
#pragma once

#include "access_token.hpp"
#include "fixture_desk.hpp"
#include "http_server.hpp"
#include "serving_place.hpp"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvanectl {

struct ConsoleSettings {
    std::vector<std::string> fixtures;  // addresses
    FixtureDesk::Settings desk;
    kelvane::web::ServingPlace place;
};

class EventFeed;

class FixtureConsole {
public:
    // Starts every fixture's desk and serves the page. Throws std::runtime_error naming the
    // address when it cannot serve there.
    explicit FixtureConsole(const ConsoleSettings& settings);
    // Stops serving, then closes the desks and waits for their threads.
    ~FixtureConsole();
    FixtureConsole(const FixtureConsole&) = delete;
    FixtureConsole& operator=(const FixtureConsole&) = delete;

    // "http://ADDRESS:PORT/#token=TOKEN": the token after '#', which a browser never sends.
    std::string url() const;

    // Closes every device, whatever runs on it; true when every fixture's thread has ended
    // within `grace` (a TEC reading cut off may wait out its controller's answer period).
    bool close(std::chrono::milliseconds grace);

private:
    kelvane::web::Routes routes();
    void runOperation(const kelvane::web::Request& request, const kelvane::web::Reply& reply);
    void setPolling(const kelvane::web::Request& request, const kelvane::web::Reply& reply);
    FixtureDesk* desk(const nlohmann::ordered_json& body);

    const AccessToken token_;
    const std::shared_ptr<EventFeed> feed_;
    std::vector<std::unique_ptr<FixtureDesk>> desks_;
    std::optional<kelvane::web::HttpServer> http_;  // last: it stops serving before the rest goes
};

}  // namespace kelvanectl
