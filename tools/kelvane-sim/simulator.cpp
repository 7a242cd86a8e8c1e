#include "simulator.hpp"

#include "models.hpp"
#if KELVANE_BROWSER_PAGES
#include "panel_server.hpp"
#else
// A build without the panel never starts one: startPanel() refuses --http.
class kelvane::sim::PanelServer {};
#endif

#include <stdexcept>
#include <utility>
#include <variant>

namespace kelvane::sim {
namespace {

constexpr std::chrono::milliseconds replayExitGrace{300};
// How soon the replay's end is noticed once its grace has passed.
constexpr std::chrono::milliseconds replayExitCheck{100};

std::optional<ReplaySettings> replaySettings(const Options& options) {
    if (options.replayFile.empty()) return std::nullopt;
    auto book = ReplayBook::load(options.replayFile);
    if (auto* problem = std::get_if<std::string>(&book)) throw std::runtime_error(*problem);
    return ReplaySettings{std::move(std::get<ReplayBook>(book)), options.replayRecordedTiming, options.replayStrict};
}

}  // namespace

Simulator::Simulator(const Options& options)
    : http_(options.http), replayExit_(options.replayExit), server_(options.quiet, options.journalLimitBytes) {
    const auto& endpoints = options.endpoints;
    auto replay = replaySettings(options);  // before anything is bound
    for (std::size_t k = 1; k <= endpoints.size(); ++k) {
        WorldSettings world = options.world;
        world.seed += static_cast<std::uint32_t>(k - 1);
        std::string label = endpoints.size() > 1 ? "fixture " + std::to_string(k) + ": " : "";
        server_.addFixture(endpoints[k - 1], SimulatedFixture(makeModels(world)), std::move(label),
                           std::exchange(replay, std::nullopt));
    }
}

Simulator::~Simulator() = default;

std::vector<std::string> Simulator::endpoints() {
    std::vector<std::string> bound;
    for (int k = 1; k <= server_.fixtureCount(); ++k) bound.push_back(server_.fixture(k).endpoint());
    return bound;
}

std::optional<std::string> Simulator::startPanel() {
    if (!http_) return std::nullopt;
#if KELVANE_BROWSER_PAGES
    panel_ = std::make_unique<PanelServer>(server_, http_->address, http_->port);
    return panel_->url();
#else
    throw std::runtime_error("this build has no panel (--http)");
#endif
}

void Simulator::run(const std::function<bool()>& stopRequested) {
    server_.run([&] { return stopRequested() || replayUsedUp(); },
                replayExit_ ? replayExitCheck : std::chrono::seconds(1));
}

// The last reply gets a moment to be read before the connection goes: a client fails the calls in
// flight when its controller disconnects.
bool Simulator::replayUsedUp() {
    const ReplayBook* book = server_.fixture(1).responder().replayBook();
    if (!replayExit_ || !book->allUsed() || server_.holdsRepliesBack()) return false;
    auto now = std::chrono::steady_clock::now();
    if (!usedUp_) usedUp_ = now;
    return now - *usedUp_ >= replayExitGrace;
}

std::optional<std::string> Simulator::replayReport() {
    const ReplayBook* book = server_.fixture(1).responder().replayBook();
    return book ? std::optional(book->reportText()) : std::nullopt;
}

}  // namespace kelvane::sim
