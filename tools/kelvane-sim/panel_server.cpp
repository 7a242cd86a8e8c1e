#include "panel_server.hpp"

#include "control_request.hpp"
#include "panel_files.hpp"

#include <kelvane/protocol/sim_methods.hpp>

#include <charconv>
#include <utility>

namespace kelvane::sim {
namespace {

constexpr int defaultJournalLength = 50;
constexpr int longestJournal = 1000;

constexpr int badRequest = 400;
constexpr int failed = 500;

web::Response json(const Value& body) { return {.body = jsonrpc::toJson(body)}; }

// Runs `work` (which gives the answer's JSON, or throws) on the serving thread and replies with
// it. A serving loop that has stopped, or is stuck, never replies: the HTTP server answers 503.
template <class Work>
void answerOnServingThread(Server& server, const web::Reply& reply, Work work) {
    server.onServingThread([reply, work = std::move(work)] {
        try {
            reply(work());
        } catch (const std::exception& error) {
            reply(web::errorResponse(failed, error.what()));
        }
    });
}

std::optional<int> integerIn(const std::string& text, int lowest, int highest) {
    int value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < lowest || value > highest) {
        return std::nullopt;
    }
    return value;
}

Value stateOf(FixtureServer& fixture) {
    return fixture.responder().control({0, std::string(methods::sim::state), Value::array(), nullptr}).result;
}

// "tcp://127.0.1.2:7805" as "127.0.1.2:7805": what a station names the fixture by.
std::string addressOf(const FixtureServer& fixture) {
    constexpr std::string_view scheme = "tcp://";
    std::string_view endpoint = fixture.endpoint();
    if (endpoint.starts_with(scheme)) endpoint.remove_prefix(scheme.size());
    return std::string(endpoint);
}

std::string eventData(const StateFeed::News& news) {
    return "{\"fixture\":" + std::to_string(news.fixture) + ",\"state\":" + news.stateJson + "}";
}

}  // namespace

PanelServer::PanelServer(Server& server, const std::string& address, int port)
    : server_(server),
      fixtures_(server.fixtureCount()),
      feed_(fixtures_,
            [this](const StateFeed::News& news) { http_.publish(std::string(web::eventsPath), eventData(news)); }),
      http_(routes(), address, port) {
    server_.watchStates([this](int fixture) {
        return feed_.changed(fixture, StateFeed::Clock::now(), [&] { return stateOf(server_.fixture(fixture)); });
    });
}

std::string PanelServer::url() const {
    return "http://" + http_.address().host + ":" + std::to_string(http_.address().port) + "/";
}

web::Routes PanelServer::routes() {
    web::Routes routes;
    routes.files(panelFiles(), web::pageFileHeaders());
    routes.get("/api/fixtures", [this](const web::Request&, const web::Reply& reply) {
        answerOnServingThread(server_, reply, [this] {
            Value fixtures = Value::array();
            for (int k = 1; k <= fixtures_; ++k) {
                auto& fixture = server_.fixture(k);
                fixtures.push_back({{"fixture", k}, {"address", addressOf(fixture)}, {"state", stateOf(fixture)}});
            }
            return json(fixtures);
        });
    });
    routes.get("/api/journal", [this](const web::Request& request, const web::Reply& reply) {
        auto fixture = integerIn(request.parameter("fixture").value_or(""), 1, fixtures_);
        auto last =
            integerIn(request.parameter("last").value_or(std::to_string(defaultJournalLength)), 1, longestJournal);
        if (!fixture || !last) {
            return reply(web::errorResponse(badRequest, "expected fixture=1.." + std::to_string(fixtures_) +
                                                            " and last=1.." + std::to_string(longestJournal)));
        }
        answerOnServingThread(server_, reply, [this, fixture, last] {
            return json(server_.fixture(*fixture).responder().journal().entries(static_cast<std::size_t>(*last)));
        });
    });
    routes.post("/api/control", [this](const web::Request& request, const web::Reply& reply) {
        auto read = readControlCall(request.body, fixtures_);
        if (auto* problem = std::get_if<std::string>(&read)) return reply(web::errorResponse(badRequest, *problem));
        answerOnServingThread(server_, reply, [this, call = std::get<ControlCall>(std::move(read))] {
            auto outcome = server_.fixture(call.fixture).responder().control(call.request);
            server_.noteChange(call.fixture);
            if (outcome.error) return web::errorResponse(badRequest, outcome.error->message);
            return json({{"result", outcome.result}});
        });
    });
    routes.events(std::string(web::eventsPath), [this] {
        std::vector<std::string> opening;
        for (const auto& news : feed_.lastPublished()) opening.push_back(eventData(news));
        return opening;
    });
    return routes;
}

}  // namespace kelvane::sim
