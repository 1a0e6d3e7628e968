// The control service: changes the world and injects faults while the simulator runs.
#pragma once

#include <array>
#include <functional>

#include "managers.h"
#include "plan.h"
#include "replay.h"
#include "service.h"
#include "world.h"

namespace hmxsim {

inline constexpr std::string_view controlPath = "/hmxsim";

// Thread: the simulator's worker.
class Control final : public Manager {
public:
    using Services = std::array<Service*, allManagers.size()>;

    // All that is referred to outlives this. `worldChanged` is called after each change. `seed`: of faults and plans that bring
    // none.
    Control(World& world, const Services& services, Surroundings& surroundings, std::uint64_t seed,
            std::function<void()> worldChanged);

    kelo::Response answer(const kelo::Request& request) override;
    void startPlan(Plan plan) { plans_.start(std::move(plan)); }
    // Lets clients ask for it, and pause it. Outlives this.
    void show(Replay& replay) noexcept { replay_ = &replay; }

private:
    static const Route<Control> routes[];

    kelo::Response world(const Call& call);
    kelo::Response requests(const Call& call);
    kelo::Response clearRequests(const Call& call);
    kelo::Response faults(const Call& call);
    kelo::Response setFault(const Call& call);
    kelo::Response clearFault(const Call& call);
    kelo::Response plan(const Call& call);
    kelo::Response insertPlan(const Call& call);
    kelo::Response cancelPlans(const Call& call);
    kelo::Response replay(const Call& call);
    kelo::Response runReplay(const Call& call);
    kelo::Response insertDisplay(const Call& call);
    kelo::Response changeDisplay(const Call& call);
    kelo::Response removeDisplay(const Call& call);
    kelo::Response insertDisplayable(const Call& call);
    kelo::Response changeDisplayable(const Call& call);
    kelo::Response removeDisplayable(const Call& call);
    kelo::Response insertLayers(const Call& call);
    kelo::Response changeLayers(const Call& call);
    kelo::Response removeLayers(const Call& call);
    kelo::Response insertInputDisplay(const Call& call);
    kelo::Response changeInputDisplay(const Call& call);
    kelo::Response removeInputDisplay(const Call& call);
    kelo::Response insertPopup(const Call& call);
    kelo::Response changePopup(const Call& call);
    kelo::Response removePopup(const Call& call);

    Service* findService(std::string_view name) const noexcept;
    kelo::hmx::displaymanager::Displayable* findDisplayable(const std::string& idOrName) noexcept;
    void runStep(const PlannedStep& step);

    World& world_;
    const Services services_;
    Surroundings& surroundings_;
    const std::uint64_t seed_;
    const std::function<void()> worldChanged_;
    PlanRunner plans_;
    Replay* replay_ = nullptr;
};

}  // namespace hmxsim
