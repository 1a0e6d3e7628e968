// The simulated display manager.
#pragma once

#include "routes.h"
#include "world.h"

namespace hmxsim {

// Thread: the simulator's worker.
class DisplayManager final : public Manager {
public:
    // `world` outlives this.
    explicit DisplayManager(World& world) : world_{world} {}
    kelo::Response answer(const kelo::Request& request) override;

private:
    static const Route<DisplayManager> routes[];

    kelo::Response displays(const Call& call);
    kelo::Response display(const Call& call);
    kelo::Response updateDisplay(const Call& call);
    kelo::Response displayables(const Call& call);
    kelo::Response displayable(const Call& call);
    kelo::Response updateDisplayable(const Call& call);
    kelo::Response layerConfigs(const Call& call);
    kelo::Response layerConfig(const Call& call);

    World& world_;
};

}  // namespace hmxsim
