#include "tec_faults.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <set>
#include <string_view>

namespace kelvane::sim {
namespace {

using Kind = TecFaultKind;

struct KindName {
    std::string_view name;
    Kind kind;
};
constexpr std::array kindNames = {
    KindName{"low_reading", Kind::lowReading},
    KindName{"sensor_offset", Kind::sensorOffset},
    KindName{"no_answer", Kind::noAnswer},
    KindName{"empty_answer", Kind::emptyAnswer},
    KindName{"no_ok", Kind::noOk},
    KindName{"fail", Kind::fail},
    KindName{"send_refused", Kind::sendRefused},
    KindName{"send_error", Kind::sendError},
    KindName{"recv_nothing", Kind::recvNothing},
};

// Below the 21.5 floor of the sampling checks; beyond their 3-degree agreement band.
constexpr double defaultLowReading = 18.0;
constexpr double defaultOffset = 4.0;
constexpr std::string_view defaultRefusal = "busy";

const std::set<std::string, std::less<>> knownKeys = {"kind",  "slot",   "command", "sensor",
                                                      "value", "offset", "reply",   "times"};

std::string_view nameOf(Kind kind) {
    for (const auto& known : kindNames) {
        if (known.kind == kind) return known.name;
    }
    return {};
}

bool isReadingFault(Kind kind) { return kind == Kind::lowReading || kind == Kind::sensorOffset; }
bool isAnswerFault(Kind kind) {
    return kind == Kind::noAnswer || kind == Kind::emptyAnswer || kind == Kind::noOk || kind == Kind::fail;
}

bool isIntegerIn(const Value& value, long long least, long long most) {
    return value.is_number_integer() && integerValue(value) >= least && integerValue(value) <= most;
}

std::optional<std::string> readKindAndSlot(const Value& entry, int slots, TecFault& fault) {
    auto kind = entry.find("kind");
    auto known = std::find_if(kindNames.begin(), kindNames.end(),
                              [&](const KindName& k) { return kind != entry.end() && isText(*kind, k.name); });
    if (known == kindNames.end())
        return "\"kind\" must be one of low_reading, sensor_offset, no_answer, "
               "empty_answer, no_ok, fail, send_refused, send_error, recv_nothing";
    fault.kind = known->kind;
    auto slot = entry.find("slot");
    if (slot == entry.end() || !isIntegerIn(*slot, 1, slots)) {
        return "\"slot\" must be an integer from 1 to " + std::to_string(slots);
    }
    fault.slot = static_cast<int>(integerValue(*slot));
    return std::nullopt;
}

std::optional<std::string> readDetails(const Value& entry, TecFault& fault) {
    auto present = [&](const char* key) { return entry.contains(key); };
    if (present("command") && !isAnswerFault(fault.kind)) return "\"command\" applies to answer faults only";
    if (present("sensor") && !isReadingFault(fault.kind)) return "\"sensor\" applies to reading faults only";
    if (present("value") && fault.kind != Kind::lowReading) return "\"value\" applies to low_reading only";
    if (present("offset") && fault.kind != Kind::sensorOffset) {
        return "\"offset\" applies to sensor_offset only";
    }
    if (present("reply") && fault.kind != Kind::sendRefused) return "\"reply\" applies to send_refused only";
    if (present("command")) {
        if (!entry["command"].is_string()) return "\"command\" must be a text";
        fault.command = entry["command"].get<std::string>();
    }
    fault.sensor = fault.kind == Kind::sensorOffset ? 2 : 1;
    if (present("sensor")) {
        if (!isIntegerIn(entry["sensor"], 1, 4)) return "\"sensor\" must be an integer from 1 to 4";
        fault.sensor = static_cast<int>(integerValue(entry["sensor"]));
    }
    fault.value = fault.kind == Kind::lowReading ? defaultLowReading : defaultOffset;
    for (const char* key : {"value", "offset"}) {
        if (!present(key)) continue;
        if (!entry[key].is_number()) return std::string("\"") + key + "\" must be a number";
        fault.value = entry[key].get<double>();
    }
    fault.reply = present("reply") ? entry["reply"] : Value(defaultRefusal);
    if (present("times")) {
        if (!isIntegerIn(entry["times"], 1, std::numeric_limits<long long>::max())) {
            return "\"times\" must be an integer of 1 or more";
        }
        fault.times = integerValue(entry["times"]);
    }
    return std::nullopt;
}

std::variant<TecFault, std::string> readFault(const Value& entry, int slots) {
    if (!entry.is_object()) return "a fault must be a dictionary";
    for (const auto& [key, value] : entry.items()) {
        if (!knownKeys.contains(key)) return "unknown fault key \"" + key + "\"";
    }
    TecFault fault;
    if (auto problem = readKindAndSlot(entry, slots, fault)) return *problem;
    if (auto problem = readDetails(entry, fault)) return *problem;
    return fault;
}

}  // namespace

Value TecFault::toValue() const {
    Value shown = {{"kind", nameOf(kind)}, {"slot", slot}};
    if (command) shown["command"] = *command;
    if (kind == Kind::lowReading) shown["value"] = value;
    if (kind == Kind::sensorOffset) shown["offset"] = value;
    if (isReadingFault(kind)) shown["sensor"] = sensor;
    if (kind == Kind::sendRefused) shown["reply"] = reply;
    shown["times"] = times ? Value(*times) : Value();
    return shown;
}

std::optional<std::string> TecFaults::replace(const Value& list, int slots) {
    if (list.is_null()) {
        clear();
        return std::nullopt;
    }
    if (!list.is_array()) return "expected a list of fault dictionaries, or null";
    std::vector<TecFault> faults;
    for (std::size_t i = 0; i < list.size(); ++i) {
        auto read = readFault(list[i], slots);
        if (auto* problem = std::get_if<std::string>(&read)) {
            return "fault " + std::to_string(i + 1) + ": " + *problem;
        }
        faults.push_back(std::get<TecFault>(read));
    }
    faults_ = std::move(faults);
    return std::nullopt;
}

std::optional<TecFault> TecFaults::use(std::vector<TecFault>::iterator fault) {
    TecFault used = *fault;
    if (fault->times && --*fault->times == 0) faults_.erase(fault);
    return used;
}

std::optional<TecFault> TecFaults::take(int slot, const std::vector<TecFaultKind>& kinds, const std::string& command) {
    auto found = std::find_if(faults_.begin(), faults_.end(), [&](const TecFault& fault) {
        return fault.slot == slot && std::find(kinds.begin(), kinds.end(), fault.kind) != kinds.end() &&
               (!fault.command || *fault.command == command);
    });
    if (found == faults_.end()) return std::nullopt;
    return use(found);
}

std::optional<TecFault> TecFaults::takeReading(int slot, int sensor) {
    auto found = std::find_if(faults_.begin(), faults_.end(), [&](const TecFault& fault) {
        return fault.slot == slot && isReadingFault(fault.kind) && fault.sensor == sensor;
    });
    if (found == faults_.end()) return std::nullopt;
    return use(found);
}

bool TecFaults::has(int slot, TecFaultKind kind) const {
    return std::any_of(faults_.begin(), faults_.end(),
                       [&](const TecFault& fault) { return fault.slot == slot && fault.kind == kind; });
}

Value TecFaults::describeSlot(int slot) const {
    Value shown = Value::array();
    for (const auto& fault : faults_) {
        if (fault.slot == slot) shown.push_back(fault.toValue());
    }
    return shown;
}

}  // namespace kelvane::sim
