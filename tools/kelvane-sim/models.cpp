#include "models.hpp"

#include "can_bus_model.hpp"
#include "dut_model.hpp"
#include "fan_model.hpp"
#include "io_model.hpp"
#include "led_model.hpp"
#include "lock_model.hpp"
#include "session_model.hpp"
#include "tray_model.hpp"

namespace kelvane::sim {

// A new part of the fixture is one class and one line here.
std::vector<std::unique_ptr<Model>> makeModels(const WorldSettings& settings, TimeSource now) {
    std::vector<std::unique_ptr<Model>> models;
    models.push_back(std::make_unique<SessionModel>());
    models.push_back(std::make_unique<TrayModel>(settings.travel, settings.lift, now));
    models.push_back(std::make_unique<DutModel>(settings.dutPresent));
    models.push_back(std::make_unique<LockModel>());
    models.push_back(std::make_unique<FanModel>());
    models.push_back(std::make_unique<IoModel>());
    models.push_back(std::make_unique<LedModel>());
    models.push_back(std::make_unique<CanBusModel>(settings.tecSlots, settings.seed, std::move(now)));
    return models;
}

}  // namespace kelvane::sim
