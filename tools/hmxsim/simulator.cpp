#include "simulator.h"

namespace hmxsim {

Simulator::Simulator(World world, const Surroundings& surroundings, std::uint64_t seed)
    : world_{std::move(world)},
      surroundings_{surroundings},
      services_{Service{nameOf(ManagerId::display), displayManager_, surroundings_, Service::Watching::retrieves},
                Service{nameOf(ManagerId::input), inputManager_, surroundings_, Service::Watching::retrieves},
                Service{nameOf(ManagerId::popup), popupManager_, surroundings_, Service::Watching::retrieves}},
      control_{world_, {&services_.front(), &services_[1], &services_.back()}, surroundings_, seed, [this] { refresh(); }},
      controlService_{"control", control_, surroundings_, Service::Watching::none} {}

void Simulator::refresh() {
    for (Service& service : services_) service.refresh();
}

}  // namespace hmxsim
