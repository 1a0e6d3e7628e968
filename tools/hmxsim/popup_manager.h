// The simulated popup manager.
#pragma once

#include "routes.h"
#include "world.h"

namespace hmxsim {

// Thread: the simulator's worker.
class PopupManager final : public Manager {
public:
    // `world` outlives this.
    explicit PopupManager(World& world) : world_{world} {}
    kelo::Response answer(const kelo::Request& request) override;

private:
    static const Route<PopupManager> routes[];

    kelo::Response popups(const Call& call);
    kelo::Response popup(const Call& call);
    kelo::Response updatePopup(const Call& call);

    World& world_;
};

}  // namespace hmxsim
