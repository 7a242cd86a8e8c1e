#include "panel_server.hpp"

#include "panel_files.hpp"

#include <httplib.h>

#include <charconv>
#include <future>
#include <stdexcept>
#include <utility>

namespace kelvane::sim {
namespace {

using std::chrono::seconds;

// A serving loop that has stopped, or is stuck, gets a 503 rather than a browser left hanging.
constexpr seconds servingThreadWait{2};
// A comment line this often keeps an idle event stream from being closed by proxies and timeouts.
constexpr seconds keepAliveEvery{15};
constexpr std::size_t largestBody = 64 * 1024;
constexpr int defaultJournalLength = 50;
constexpr int longestJournal = 1000;

constexpr int ok = 200;
constexpr int badRequest = 400;
constexpr int notServing = 503;
constexpr int failed = 500;

constexpr std::string_view pagePolicy =
    "default-src 'self'; img-src 'self' data:; frame-ancestors 'none'";

struct Answer {
    int status = ok;
    Value body;
};

void send(httplib::Response& response, const Answer& answer) {
    response.status = answer.status;
    response.set_header("Cache-Control", "no-store");
    response.set_content(jsonrpc::toJson(answer.body), "application/json");
}

Answer refusal(const Refusal& refused) { return {refused.status, {{"error", refused.problem}}}; }

// Runs `work` (which gives an Answer) on the serving thread and sends its answer.
template <class Work>
void answerOnServingThread(Server& server, httplib::Response& response, Work work) {
    auto answer = server.onServingThread(std::move(work));
    if (answer.wait_for(servingThreadWait) != std::future_status::ready) {
        send(response, refusal({notServing, "the simulator is not serving"}));
        return;
    }
    try {
        send(response, answer.get());
    } catch (const std::future_error&) {
        send(response, refusal({notServing, "the simulator is not serving"}));
    } catch (const std::exception& error) {
        send(response, refusal({failed, error.what()}));
    }
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
    return fixture.control({0, "sim.state", Value::array(), nullptr}).result;
}

// "tcp://127.0.1.2:7805" as "127.0.1.2:7805": what a station names the fixture by.
std::string addressOf(const FixtureServer& fixture) {
    constexpr std::string_view scheme = "tcp://";
    std::string_view endpoint = fixture.endpoint();
    if (endpoint.starts_with(scheme)) endpoint.remove_prefix(scheme.size());
    return std::string(endpoint);
}

std::string eventText(const std::vector<StateFeed::News>& news) {
    if (news.empty()) return ": keep-alive\n\n";
    std::string text;
    for (const auto& each : news) {
        text += "data: {\"fixture\":" + std::to_string(each.fixture) + ",\"state\":" + each.stateJson + "}\n\n";
    }
    return text;
}

}  // namespace

PanelServer::PanelServer(Server& server, const std::string& address, int port)
    : server_(server), fixtures_(server.fixtureCount()), address_{address, port}, feed_(fixtures_),
      http_(std::make_unique<httplib::Server>()) {
    http_->set_payload_max_length(largestBody);
    addRoutes();
    bool bound = port == 0 ? (address_.port = http_->bind_to_any_port(address)) > 0
                           : http_->bind_to_port(address, port);
    if (!bound) throw std::runtime_error("cannot serve the panel at " + address + ":" + std::to_string(port));
    server_.watchStates([this](int fixture) {
        return feed_.changed(fixture, StateFeed::Clock::now(), [&] { return stateOf(server_.fixture(fixture)); });
    });
    thread_ = std::thread([this] {
        http_->listen_after_bind();
        listenReturned_ = true;
    });
}

PanelServer::~PanelServer() {
    feed_.close();
    // stop() reaches only a server already listening: one stopped before its thread got there
    // would then listen for good.
    while (!http_->is_running() && !listenReturned_) std::this_thread::yield();
    http_->stop();
    thread_.join();
}

std::string PanelServer::url() const {
    return "http://" + address_.host + ":" + std::to_string(address_.port) + "/";
}

void PanelServer::addRoutes() {
    for (const auto& file : panelFiles()) {
        auto serve = [file](const httplib::Request&, httplib::Response& response) {
            response.set_header("Content-Security-Policy", std::string(pagePolicy));
            response.set_content(file.bytes.data(), file.bytes.size(), std::string(contentTypeOf(file.name)).c_str());
        };
        http_->Get("/" + std::string(file.name), serve);
        if (file.name == "index.html") http_->Get("/", serve);
    }
    http_->Get("/api/fixtures", [this](const httplib::Request&, httplib::Response& response) {
        answerOnServingThread(server_, response, [this] {
            Value fixtures = Value::array();
            for (int k = 1; k <= fixtures_; ++k) {
                auto& fixture = server_.fixture(k);
                fixtures.push_back({{"fixture", k}, {"address", addressOf(fixture)}, {"state", stateOf(fixture)}});
            }
            return Answer{ok, fixtures};
        });
    });
    http_->Get("/api/journal", [this](const httplib::Request& request, httplib::Response& response) {
        auto fixture = integerIn(request.get_param_value("fixture"), 1, fixtures_);
        auto last = request.has_param("last") ? integerIn(request.get_param_value("last"), 1, longestJournal)
                                              : std::optional(defaultJournalLength);
        if (!fixture || !last) {
            send(response, refusal({badRequest, "expected fixture=1.." + std::to_string(fixtures_) +
                                                    " and last=1.." + std::to_string(longestJournal)}));
            return;
        }
        answerOnServingThread(server_, response, [this, fixture, last] {
            return Answer{ok, server_.fixture(*fixture).journal().entries(static_cast<std::size_t>(*last))};
        });
    });
    http_->Post("/api/control", [this](const httplib::Request& request, httplib::Response& response) {
        if (auto foreign = refuseForeign(address_, request.get_header_value("Host"),
                                         request.get_header_value("Origin"), request.get_header_value("Content-Type"))) {
            send(response, refusal(*foreign));
            return;
        }
        auto read = readControlCall(request.body, fixtures_);
        if (auto* refused = std::get_if<Refusal>(&read)) {
            send(response, refusal(*refused));
            return;
        }
        answerOnServingThread(server_, response, [this, call = std::get<ControlCall>(std::move(read))] {
            auto outcome = server_.fixture(call.fixture).control(call.request);
            server_.noteChange(call.fixture);
            if (outcome.error) return refusal({badRequest, outcome.error->message});
            return Answer{ok, {{"result", outcome.result}}};
        });
    });
    http_->Get("/api/events", [this](const httplib::Request&, httplib::Response& response) {
        response.set_header("Cache-Control", "no-store");
        auto seen = std::make_shared<std::vector<std::uint64_t>>();
        response.set_chunked_content_provider("text/event-stream", [this, seen](std::size_t, httplib::DataSink& sink) {
            auto news = feed_.waitForNews(*seen, StateFeed::Clock::now() + keepAliveEvery);
            if (!news) return false;
            auto text = eventText(*news);
            return sink.write(text.data(), text.size());
        });
    });
}

}  // namespace kelvane::sim
