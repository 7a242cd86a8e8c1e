#include "server.hpp"

#include <algorithm>
#include <stdexcept>

namespace kelvane::sim {
namespace {

using std::chrono::milliseconds;

}  // namespace

FixtureServer& Server::addFixture(const std::string& endpoint, SimulatedFixture fixture, std::string logLabel,
                                  std::optional<ReplaySettings> replay) {
    try {
        fixtures_.push_back(std::make_unique<FixtureServer>(context_, endpoint, std::move(fixture), std::move(logLabel),
                                                            quiet_, journalLimitBytes_, std::move(replay)));
    } catch (const zmq::error_t& error) {
        throw std::runtime_error(std::string(error.what()) + " (" + endpoint + ")");
    }
    return *fixtures_.back();
}

// One poll over every fixture's socket and the task queue's wake-up pipe (the last item). An idle
// station wakes once per `checkEvery` only: a few dozen sockets polled ten times a second would
// cost more than the rest of an idle simulator.
void Server::run(const std::function<bool()>& stopRequested, milliseconds checkEvery) {
    std::vector<zmq_pollitem_t> items;
    for (auto& fixture : fixtures_) items.push_back({fixture->socket().handle(), 0, ZMQ_POLLIN, 0});
    items.push_back({nullptr, tasks_.wakeDescriptor(), ZMQ_POLLIN, 0});
    while (!stopRequested()) {
        auto wait = checkEvery;
        if (auto due = nextWake()) {
            auto untilDue = std::chrono::ceil<milliseconds>(*due - FixtureServer::Clock::now());
            wait = std::clamp(untilDue, milliseconds(0), checkEvery);
        }
        int ready = zmq_poll(items.data(), static_cast<int>(items.size()), static_cast<long>(wait.count()));
        if (ready < 0 && zmq_errno() != EINTR) throw zmq::error_t();
        for (std::size_t i = 0; ready > 0 && i < fixtures_.size(); ++i) {
            if (!(items[i].revents & ZMQ_POLLIN)) continue;
            fixtures_[i]->receiveAll();
            noteChange(static_cast<int>(i + 1));
        }
        if (ready > 0 && (items.back().revents & ZMQ_POLLIN)) tasks_.runPosted();
        auto now = FixtureServer::Clock::now();
        for (auto& fixture : fixtures_) fixture->sendDue(now);
        lookAgainDue(now);
    }
}

void Server::watchStates(StateWatch watch) {
    watch_ = std::move(watch);
    lookAgain_.assign(fixtures_.size(), std::nullopt);
}

void Server::noteChange(int fixture) {
    if (watch_) lookAgain_.at(static_cast<std::size_t>(fixture - 1)) = watch_(fixture);
}

void Server::lookAgainDue(FixtureServer::Clock::time_point now) {
    for (std::size_t i = 0; i < lookAgain_.size(); ++i) {
        if (lookAgain_[i] && *lookAgain_[i] <= now) noteChange(static_cast<int>(i + 1));
    }
}

bool Server::holdsRepliesBack() const { return nextDue().has_value(); }

std::optional<FixtureServer::Clock::time_point> Server::nextDue() const {
    std::optional<FixtureServer::Clock::time_point> earliest;
    for (const auto& fixture : fixtures_) {
        auto due = fixture->nextDue();
        if (due && (!earliest || *due < *earliest)) earliest = due;
    }
    return earliest;
}

std::optional<FixtureServer::Clock::time_point> Server::nextWake() const {
    auto earliest = nextDue();
    for (const auto& due : lookAgain_) {
        if (due && (!earliest || *due < *earliest)) earliest = due;
    }
    return earliest;
}

}  // namespace kelvane::sim
