// The simulated input manager.
#pragma once

#include "hmx/inputregions/haptic_and_input_info_sorted.h"
#include "routes.h"
#include "world.h"

namespace hmxsim {

// Thread: the simulator's worker.
class InputManager final : public Manager {
public:
    // `world` outlives this.
    explicit InputManager(World& world) : world_{world} {}
    kelo::Response answer(const kelo::Request& request) override;

private:
    static const Route<InputManager> routes[];

    kelo::Response proximity(const Call& call);
    kelo::Response shutter(const Call& call);
    kelo::Response force(const Call& call);
    kelo::Response regionsOfDisplay(const Call& call);
    kelo::Response regionsOfHmi(const Call& call);
    kelo::Response setPower(const Call& call);
    kelo::Response setProximity(const Call& call);
    kelo::Response setShutter(const Call& call);
    kelo::Response triggerHaptic(const Call& call);
    kelo::Response setRegions(const Call& call);

    // Reads the body and lets `change` apply it to the display.
    template <class Body, class Change>
    kelo::Response changeDisplay(const Call& call, const char* bodyType, Change change);

    World& world_;
};

// The regions of a display, of one HMI or of all ("" is all): those of the topmost layer first, as the display's layer
// configuration orders layers, then those of layers that it does not name; within a layer in the order in which the HMIs came, an
// HMI's in its own order. Each has its HMI's and its layer's name filled in.
kelo::hmx::inputregions::HapticAndInputInfoSorted sortedRegions(World& world, const InputDisplay& display, std::string_view hmi);

}  // namespace hmxsim
