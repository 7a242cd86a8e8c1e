#include "tray_model.hpp"

#include <kelvane/protocol/methods.hpp>
#include <kelvane/protocol/replies.hpp>

#include <string>

namespace kelvane::sim {
namespace {

using Position = TrayModel::Position;
using std::chrono::milliseconds;

constexpr std::array allPositions = {Position::in, Position::out, Position::up, Position::down};

struct PositionInfo {
    std::string_view key;   // in "sim.set" and the sensors dictionary
    std::string_view name;  // in the tray dictionary
    std::string_view sensorMethod;
    std::string_view moveMethod;
    std::string_view acknowledgement;
    std::string_view refusalPrefix;
};

const PositionInfo& info(Position position) {
    static const std::array<PositionInfo, 4> table = {{
        {"in", "IN", methods::inSensorRead, methods::fixtureIn, replies::inDone, "in_refused: "},
        {"out", "OUT", methods::outSensorRead, methods::fixtureOut, replies::outDone, "out_refused: "},
        {"up", "UP", methods::upSensorRead, methods::fixtureUp, replies::upDone, "up_refused: "},
        {"down", "DOWN", methods::downSensorRead, methods::fixtureDown, replies::downDone, "down_refused: "},
    }};
    return table[static_cast<std::size_t>(position)];
}

// Longer moves than this are no use to anyone and would overflow the clock arithmetic.
constexpr long long longestMoveMs = 24LL * 60 * 60 * 1000;

constexpr std::string_view notUpRefusal = "tray is not up";
constexpr std::string_view notInRefusal = "tray is not in";

bool isHorizontal(Position position) { return position == Position::in || position == Position::out; }
bool sameAxis(Position a, Position b) { return isHorizontal(a) == isHorizontal(b); }

std::optional<Position> positionByKey(const Value& key) {
    for (auto position : allPositions) {
        if (isText(key, info(position).key)) return position;
    }
    return std::nullopt;
}

std::optional<Position> positionByName(const Value& name) {
    for (auto position : allPositions) {
        if (isText(name, info(position).name)) return position;
    }
    return std::nullopt;
}

Value nameOrNull(std::optional<Position> position) { return position ? Value(info(*position).name) : Value(); }

long long millisecondsOf(std::chrono::steady_clock::duration duration) {
    return std::chrono::duration_cast<milliseconds>(duration).count();
}

}  // namespace

TrayModel::TrayModel(milliseconds travel, milliseconds lift, TimeSource now)
    : now_(std::move(now)), travelAtStart_(travel), liftAtStart_(lift), travel_(travel), lift_(lift) {}

bool TrayModel::handles(std::string_view method) const {
    for (auto position : allPositions) {
        if (method == info(position).sensorMethod || method == info(position).moveMethod) return true;
    }
    return false;
}

Outcome TrayModel::call(const jsonrpc::Request& request) {
    auto now = now_();
    for (auto position : allPositions) {
        if (request.method == info(position).sensorMethod) return Outcome::reply(sensor(position, now));
    }
    for (auto position : allPositions) {
        if (request.method == info(position).moveMethod) return move(position, now);
    }
    return Outcome::failure(jsonrpc::methodNotFoundError, "method not found: " + request.method);
}

// A stalled move stays under way for as long as the stall is set.
bool TrayModel::arrived(Clock::time_point now) const {
    return move_ && stall_ != move_->to && now - move_->start >= move_->duration;
}

// Every change of the world settles a finished move first, so a stall set later cannot undo it.
void TrayModel::settle(Clock::time_point now) {
    if (!arrived(now)) return;
    (isHorizontal(move_->to) ? horizontal_ : vertical_) = move_->to;
    move_.reset();
}

// Where the tray is on the axis of `position`; nothing while it travels along that axis.
std::optional<Position> TrayModel::positionOnAxisOf(Position position, Clock::time_point now) const {
    if (move_ && sameAxis(move_->to, position)) {
        if (!arrived(now)) return std::nullopt;
        return move_->to;
    }
    return isHorizontal(position) ? horizontal_ : vertical_;
}

Value TrayModel::sensor(Position position, Clock::time_point now) const {
    const Value& stuck = stuck_[static_cast<std::size_t>(position)];
    if (!stuck.is_null()) return stuck;
    return positionOnAxisOf(position, now) == position ? 1 : 0;
}

Outcome TrayModel::move(Position target, Clock::time_point now) {
    settle(now);
    if (auto refusal = refusalFor(target)) {
        return Outcome::reply(std::string(info(target).refusalPrefix) + std::string(*refusal));
    }
    startMove(target, now);
    return Outcome::reply(info(target).acknowledgement);
}

// The tray may travel only when fully up, and lower only when fully in; rising is always safe.
std::optional<std::string_view> TrayModel::refusalFor(Position target) const {
    bool lifting = move_ && !isHorizontal(move_->to);
    bool travelling = move_ && isHorizontal(move_->to);
    if (isHorizontal(target) && (lifting || vertical_ != Position::up)) return notUpRefusal;
    if (target == Position::down && (travelling || horizontal_ != Position::in)) return notInRefusal;
    return std::nullopt;
}

// A repeated command lets the move under way finish; a reversed one starts over from now.
void TrayModel::startMove(Position target, Clock::time_point now) {
    if (move_ && move_->to == target) return;
    bool underWayOnAxis = move_ && sameAxis(move_->to, target);
    Position resting = isHorizontal(target) ? horizontal_ : vertical_;
    if (!underWayOnAxis && resting == target) return;
    move_ = Move{target, now, isHorizontal(target) ? travel_ : lift_};
}

Value TrayModel::state() const {
    auto now = now_();
    Value moving;
    if (move_ && !arrived(now)) {
        moving = {{"to", info(move_->to).name},
                  {"elapsed_ms", millisecondsOf(now - move_->start)},
                  {"duration_ms", millisecondsOf(move_->duration)},
                  {"stalled", stall_ == move_->to}};
    }
    Value stuck = Value::object();
    Value sensors = Value::object();
    for (auto position : allPositions) {
        const Value& fixed = stuck_[static_cast<std::size_t>(position)];
        if (!fixed.is_null()) stuck[info(position).key] = fixed;
        sensors[info(position).key] = sensor(position, now);
    }
    Value tray = {{"horizontal", nameOrNull(positionOnAxisOf(Position::in, now))},
                  {"vertical", nameOrNull(positionOnAxisOf(Position::up, now))},
                  {"moving", moving},
                  {"travel_ms", travel_.count()},
                  {"lift_ms", lift_.count()},
                  {"stuck", stuck},
                  {"stall", stall_ ? Value(info(*stall_).key) : Value()}};
    return {{"tray", tray}, {"sensors", sensors}};
}

SetResult TrayModel::set(std::string_view key, const Value& value) {
    settle(now_());
    if (key == "travel_ms") return setDuration(travel_, value);
    if (key == "lift_ms") return setDuration(lift_, value);
    if (key == "stuck") return setStuck(value);
    if (key == "stall") return setStall(value);
    if (key == "tray") return setPlacement(value);
    return SetResult::notMine;
}

// A new duration applies to moves started from now on.
SetResult TrayModel::setDuration(milliseconds& duration, const Value& value) {
    if (!value.is_number_integer() || integerValue(value) < 0 || integerValue(value) > longestMoveMs) {
        return SetResult::badValue;
    }
    duration = milliseconds(integerValue(value));
    return SetResult::applied;
}

// {"in": 0} fixes a sensor's reading (any value, e.g. the text "1"); {"in": null} frees it;
// null frees them all.
SetResult TrayModel::setStuck(const Value& value) {
    if (value.is_null()) {
        stuck_.fill(nullptr);
        return SetResult::applied;
    }
    if (!value.is_object()) return SetResult::badValue;
    for (const auto& [key, reading] : value.items()) {
        if (!positionByKey(key)) return SetResult::badValue;
    }
    for (const auto& [key, reading] : value.items()) {
        stuck_[static_cast<std::size_t>(*positionByKey(key))] = reading;
    }
    return SetResult::applied;
}

SetResult TrayModel::setStall(const Value& value) {
    if (value.is_null()) {
        stall_.reset();
        return SetResult::applied;
    }
    auto position = positionByKey(value);
    if (!position) return SetResult::badValue;
    stall_ = position;
    return SetResult::applied;
}

// {"horizontal": "IN", "vertical": "DOWN"} puts the tray there at once, ending any move. Any
// combination is allowed, including ones the mechanics never reach (OUT and DOWN).
SetResult TrayModel::setPlacement(const Value& value) {
    if (!value.is_object()) return SetResult::badValue;
    Position horizontal = horizontal_;
    Position vertical = vertical_;
    for (const auto& [key, name] : value.items()) {
        auto position = positionByName(name);
        if (key == "horizontal" && position && isHorizontal(*position)) {
            horizontal = *position;
        } else if (key == "vertical" && position && !isHorizontal(*position)) {
            vertical = *position;
        } else {
            return SetResult::badValue;
        }
    }
    horizontal_ = horizontal;
    vertical_ = vertical;
    move_.reset();
    return SetResult::applied;
}

void TrayModel::reset() {
    travel_ = travelAtStart_;
    lift_ = liftAtStart_;
    horizontal_ = Position::out;
    vertical_ = Position::up;
    move_.reset();
    stuck_.fill(nullptr);
    stall_.reset();
}

}  // namespace kelvane::sim
