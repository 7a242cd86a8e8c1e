#include "simulated_fixture.hpp"

namespace kelvane::sim {

SimulatedFixture::SimulatedFixture(std::vector<std::unique_ptr<Model>> models) : models_(std::move(models)) {}

std::optional<Outcome> SimulatedFixture::call(const jsonrpc::Request& request) {
    for (auto& model : models_) {
        if (model->handles(request.method)) return model->call(request);
    }
    return std::nullopt;
}

Value SimulatedFixture::state() const {
    Value state = Value::object();
    for (const auto& model : models_) state.update(model->state());
    return state;
}

std::optional<std::string> SimulatedFixture::set(const Value& changes) {
    if (!changes.is_object()) return "expected one dictionary of settings";
    for (const auto& [key, value] : changes.items()) {
        auto result = SetResult::notMine;
        for (auto& model : models_) {
            result = model->set(key, value);
            if (result != SetResult::notMine) break;
        }
        if (result == SetResult::notMine) return "unknown setting \"" + key + "\"";
        if (result == SetResult::badValue) return "bad value for \"" + key + "\": " + jsonrpc::toJson(value);
    }
    return std::nullopt;
}

void SimulatedFixture::reset() {
    for (auto& model : models_) model->reset();
}

}  // namespace kelvane::sim
