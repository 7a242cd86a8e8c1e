#include "operations.hpp"

#include "commands.hpp"
#include "report.hpp"

#include <kelvane/Kelvane.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

namespace kelvanectl {
namespace {

using json = nlohmann::ordered_json;

// The LEDs answer nothing: the library sends the call and returns, so "sent" is all there is to
// show. Without a session it sends nothing, which is said.
template <typename Light>
Outcome onSession(KelvaneHandle handle, Light light) {
    auto device = kelvane::deviceOf(handle);
    if (!device || !device->session()) return failed(nullptr, "the device has no session");
    light(*device->session());
    Outcome sent = succeeded(nullptr);
    sent.plain = "sent";
    return sent;
}

std::vector<DeviceCommand> ledCommands(const Arguments& arguments) {
    const Arguments* values = &arguments;
    Parameter slot{"slot", "Slot number", &Arguments::ledSlot};
    Parameter mode{"mode", "Colour, e.g. GREEN, or OFF", &Arguments::ledMode};
    return {
        {"led slot",
         "Light a slot's LED",
         false,
         [values](KelvaneHandle device) {
             return onSession(device, [&](auto& session) { session.uutLed(values->ledSlot, values->ledMode); });
         },
         {slot, mode}},
        {"led blink",
         "Blink a slot's LED",
         false,
         [values](KelvaneHandle device) {
             return onSession(device, [&](auto& session) { session.uutLedBlink(values->ledSlot, values->ledMode); });
         },
         {slot, mode}},
        {"led status",
         "Light the fixture's status LED",
         false,
         [values](KelvaneHandle device) {
             return onSession(device, [&](auto& session) { session.stateLed(values->ledMode); });
         },
         {mode}},
    };
}

std::vector<DeviceCommand> consoleCommands(const Arguments& arguments) {
    auto commands = deviceCommands(arguments);
    for (auto& led : ledCommands(arguments)) commands.push_back(std::move(led));
    return commands;
}

// "fan set takes: fan, speed", for a request with too few or too many.
std::string usage(const DeviceCommand& command) {
    if (command.parameters.empty()) return command.name + " takes no arguments";
    std::string text = command.name + " takes:";
    for (const auto& parameter : command.parameters) {
        text += (&parameter == &command.parameters.front() ? " " : ", ") + parameter.name;
    }
    return text;
}

// The words as a command line shows them: "lock on", "fan set 1 60".
std::string commandLine(const std::string& name, const std::vector<json>& values) {
    std::string line = name;
    for (const auto& value : values) line += " " + (value.is_string() ? value.get<std::string>() : value.dump());
    return line;
}

std::optional<int> number(const json& value) {
    if (value.is_number_integer()) {
        auto wide = value.get<long long>();
        if (wide < std::numeric_limits<int>::min() || wide > std::numeric_limits<int>::max()) return std::nullopt;
        return static_cast<int>(wide);
    }
    if (!value.is_string()) return std::nullopt;
    const auto& text = value.get_ref<const std::string&>();
    int read = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), read);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return read;
}

// Writes `value` into the parameter's field; the reason when it does not fit.
std::optional<std::string> assign(const Parameter& parameter, const json& value, Arguments& arguments) {
    if (auto* field = std::get_if<int Arguments::*>(&parameter.field)) {
        auto read = number(value);
        if (!read) return parameter.name + " must be a whole number";
        if (parameter.lowest && *read < *parameter.lowest) {
            return parameter.name + " must be " + std::to_string(*parameter.lowest) + " or more";
        }
        arguments.*(*field) = *read;
        return std::nullopt;
    }
    if (!value.is_string()) return parameter.name + " must be a text";
    const auto& text = value.get_ref<const std::string&>();
    const auto& words = parameter.words;
    if (!words.empty() && std::find(words.begin(), words.end(), text) == words.end()) {
        return parameter.name + " must be " + parameter.help;
    }
    arguments.*std::get<std::string Arguments::*>(parameter.field) = text;
    return std::nullopt;
}

const DeviceCommand* named(const std::vector<DeviceCommand>& commands, const std::string& name) {
    for (const auto& command : commands) {
        if (command.name == name) return &command;
    }
    return nullptr;
}

}  // namespace

std::variant<Operation, std::string> readOperation(const std::string& op, const json& args) {
    if (!args.is_null() && !args.is_array()) return "args must be a list";
    std::vector<json> values = args.is_array() ? args.get<std::vector<json>>() : std::vector<json>{};
    // Held by the operation: the command reads its values when it runs.
    auto arguments = std::make_shared<Arguments>();
    auto commands = consoleCommands(*arguments);
    const DeviceCommand* command = named(commands, op);
    if (!command && !values.empty() && values.front().is_string()) {
        command = named(commands, op + " " + values.front().get<std::string>());
        if (command) values.erase(values.begin());
    }
    if (!command) return "unknown op \"" + op + "\": the ops are kelvanectl's commands (GET /api/operations)";
    if (values.size() != command->parameters.size()) return usage(*command);
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (auto problem = assign(command->parameters[i], values[i], *arguments))
            return command->name + ": " + *problem;
    }
    return Operation{command->name, commandLine(command->name, values), command->moves,
                     [arguments, run = command->run](KelvaneHandle device) { return run(device); }};
}

json answerJson(const Outcome& outcome, double seconds) {
    json answer = {{"ok", outcome.ok},
                   {"result", outcome.result},
                   {"text", plainResult(outcome)},
                   {"seconds", std::round(seconds * 1000.0) / 1000.0}};
    if (!outcome.ok) answer["error"] = outcome.problem;
    return answer;
}

json operationList() {
    Arguments unused;
    json list = json::array();
    for (const auto& command : consoleCommands(unused)) {
        json parameters = json::array();
        for (const auto& parameter : command.parameters) {
            json shown = {{"name", parameter.name},
                          {"help", parameter.help},
                          {"kind", std::holds_alternative<int Arguments::*>(parameter.field) ? "number" : "word"}};
            if (!parameter.words.empty()) shown["words"] = parameter.words;
            if (parameter.lowest) shown["lowest"] = *parameter.lowest;
            parameters.push_back(std::move(shown));
        }
        list.push_back({{"name", command.name},
                        {"help", command.description},
                        {"moves", command.moves},
                        {"parameters", std::move(parameters)}});
    }
    return list;
}

}  // namespace kelvanectl
