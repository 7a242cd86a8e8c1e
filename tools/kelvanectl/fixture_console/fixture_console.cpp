#include "fixture_console.hpp"

#include "console_page_files.hpp"

#include <algorithm>
#include <mutex>

namespace kelvanectl {

namespace web = kelvane::web;
using json = nlohmann::ordered_json;

namespace {

constexpr int badRequest = 400;
constexpr int forbidden = 403;
constexpr int conflict = 409;
constexpr int notServing = 503;

constexpr std::string_view tokenHeader = "X-Kelvane-Token";

// An operation waits behind those before it on its fixture: a TEC reading of a silent slot takes
// about 25 s, a move up to 15 s.
constexpr std::chrono::minutes replyDeadline{10};

std::string text(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

web::Response answer(const json& body) { return {.body = text(body)}; }

std::string field(const json& body, const char* name) {
    auto found = body.find(name);
    return found != body.end() && found->is_string() ? found->get<std::string>() : std::string();
}

}  // namespace

// Where the desks' events go: the event stream, once the server serves; nowhere once it stopped.
class EventFeed {
public:
    void serveWith(web::HttpServer* server) {
        std::lock_guard lock(mutex_);
        server_ = server;
    }
    void publish(const json& event) {
        std::string data = text(event);
        std::lock_guard lock(mutex_);
        if (server_) server_->publish(std::string(web::eventsPath), std::move(data));
    }

private:
    std::mutex mutex_;
    web::HttpServer* server_ = nullptr;
};

FixtureConsole::FixtureConsole(const ConsoleSettings& settings) : feed_(std::make_shared<EventFeed>()) {
    for (const auto& address : settings.fixtures) {
        desks_.push_back(std::make_unique<FixtureDesk>(address, settings.desk,
                                                       [feed = feed_](const json& event) { feed->publish(event); }));
    }
    web::Limits limits;
    limits.replyDeadline = replyDeadline;
    http_.emplace(routes(), settings.place.address, settings.place.port, limits);
    feed_->serveWith(&*http_);
}

FixtureConsole::~FixtureConsole() {
    feed_->serveWith(nullptr);
    http_.reset();
    desks_.clear();
}

std::string FixtureConsole::url() const {
    const auto& served = http_->address();
    return "http://" + served.host + ":" + std::to_string(served.port) + "/#token=" + token_.text();
}

bool FixtureConsole::close(std::chrono::milliseconds grace) {
    for (auto& desk : desks_) desk->close();
    auto giveUp = std::chrono::steady_clock::now() + grace;
    return std::all_of(desks_.begin(), desks_.end(), [giveUp](auto& desk) { return desk->waitForEnd(giveUp); });
}

web::Routes FixtureConsole::routes() {
    web::Routes routes;
    routes.files(consolePageFiles(), web::pageFileHeaders());
    routes.gate("/api/", [this](const web::Request& request) -> std::optional<web::Response> {
        if (token_.matches(request.header(tokenHeader))) return std::nullopt;
        return web::errorResponse(forbidden, "the console's API takes requests only with its token in " +
                                                 std::string(tokenHeader) +
                                                 ": open the address kelvanectl console printed");
    });
    routes.get("/api/fixtures", [this](const web::Request&, const web::Reply& reply) {
        json fixtures = json::array();
        for (const auto& desk : desks_) fixtures.push_back(desk->state());
        reply(answer(fixtures));
    });
    routes.get("/api/operations", [](const web::Request&, const web::Reply& reply) { reply(answer(operationList())); });
    routes.post("/api/op",
                [this](const web::Request& request, const web::Reply& reply) { runOperation(request, reply); });
    routes.post("/api/polling",
                [this](const web::Request& request, const web::Reply& reply) { setPolling(request, reply); });
    routes.events(std::string(web::eventsPath), [this] {
        std::vector<std::string> opening;
        for (const auto& desk : desks_) opening.push_back(text(desk->stateEvent()));
        return opening;
    });
    return routes;
}

FixtureDesk* FixtureConsole::desk(const json& body) {
    auto address = field(body, "fixture");
    for (auto& desk : desks_) {
        if (desk->address() == address) return desk.get();
    }
    return nullptr;
}

void FixtureConsole::runOperation(const web::Request& request, const web::Reply& reply) {
    json body = json::parse(request.body, nullptr, false);
    if (!body.is_object()) return reply(web::errorResponse(badRequest, "expected {\"fixture\", \"op\", \"args\"}"));
    FixtureDesk* fixture = desk(body);
    if (!fixture) return reply(web::errorResponse(badRequest, "no fixture \"" + field(body, "fixture") + "\" here"));
    auto read = readOperation(field(body, "op"), body.value("args", json()));
    if (auto* problem = std::get_if<std::string>(&read)) return reply(web::errorResponse(badRequest, *problem));
    auto refusal = fixture->submit(std::get<Operation>(std::move(read)), [reply](const FixtureDesk::Answer& done) {
        reply(answer(answerJson(done.outcome, done.seconds)));
    });
    if (refusal) {
        reply(web::errorResponse(refusal->kind == FixtureDesk::Refusal::moveUnderWay ? conflict : notServing,
                                 refusal->reason));
    }
}

void FixtureConsole::setPolling(const web::Request& request, const web::Reply& reply) {
    json body = json::parse(request.body, nullptr, false);
    FixtureDesk* fixture = body.is_object() ? desk(body) : nullptr;
    auto on = body.is_object() ? body.find("on") : body.end();
    if (!fixture || on == body.end() || !on->is_boolean()) {
        return reply(
            web::errorResponse(badRequest, "expected {\"fixture\": one of this console's, \"on\": true or false}"));
    }
    fixture->setPolling(on->get<bool>());
    reply(answer(fixture->state()));
}

}  // namespace kelvanectl
