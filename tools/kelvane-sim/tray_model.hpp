// The tray: travels OUT <-> IN while UP, and lowers DOWN / rises UP while IN. Positions are
// computed from when a move started and how long it takes, on the time source, so nothing runs
// in the background. The four position sensors follow the mechanics unless a sensor is stuck.
#pragma once

#include "model.hpp"

#include <array>
#include <chrono>
#include <optional>

namespace kelvane::sim {

class TrayModel final : public Model {
public:
    TrayModel(std::chrono::milliseconds travel, std::chrono::milliseconds lift, TimeSource now);

    bool handles(std::string_view method) const override;
    Outcome call(const jsonrpc::Request& request) override;
    Value state() const override;
    SetResult set(std::string_view key, const Value& value) override;
    void reset() override;

    enum class Position { in, out, up, down };

private:
    using Clock = std::chrono::steady_clock;

    // At most one move is under way: the tray travels only while UP, and lowers only while IN.
    struct Move {
        Position to;
        Clock::time_point start;
        Clock::duration duration;
    };

    bool arrived(Clock::time_point now) const;
    void settle(Clock::time_point now);
    std::optional<Position> positionOnAxisOf(Position position, Clock::time_point now) const;
    Value sensor(Position position, Clock::time_point now) const;

    Outcome move(Position target, Clock::time_point now);
    std::optional<std::string_view> refusalFor(Position target) const;
    void startMove(Position target, Clock::time_point now);

    SetResult setDuration(std::chrono::milliseconds& duration, const Value& value);
    SetResult setStuck(const Value& value);
    SetResult setStall(const Value& value);
    SetResult setPlacement(const Value& value);

    const TimeSource now_;
    const std::chrono::milliseconds travelAtStart_;
    const std::chrono::milliseconds liftAtStart_;
    std::chrono::milliseconds travel_;
    std::chrono::milliseconds lift_;

    Position horizontal_ = Position::out;  // where the tray last came to rest
    Position vertical_ = Position::up;
    std::optional<Move> move_;

    std::array<Value, 4> stuck_{};   // per sensor: the value it reads whatever happens; null = none
    std::optional<Position> stall_;  // a move to this position is acknowledged but never ends
};

}  // namespace kelvane::sim
