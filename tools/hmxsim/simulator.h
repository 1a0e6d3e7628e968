// The simulated managers and their world, put together.
#pragma once

#include <array>

#include "control.h"
#include "display_manager.h"
#include "input_manager.h"
#include "popup_manager.h"
#include "service.h"
#include "world.h"

namespace hmxsim {

// Owns the world; knows nothing of sockets. Thread: the worker, but for what services declare otherwise.
class Simulator {
public:
    // All that the surroundings refer to outlives this. `seed`: of faults and plans that bring none.
    Simulator(World world, const Surroundings& surroundings, std::uint64_t seed);
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    Service& service(ManagerId id) noexcept { return services_[static_cast<std::size_t>(id)]; }
    Service& controlService() noexcept { return controlService_; }
    Control& control() noexcept { return control_; }
    World& world() noexcept { return world_; }

private:
    void refresh();

    World world_;
    Surroundings surroundings_;
    DisplayManager displayManager_{world_};
    InputManager inputManager_{world_};
    PopupManager popupManager_{world_};
    std::array<Service, allManagers.size()> services_;
    Control control_;
    Service controlService_;
};

}  // namespace hmxsim
