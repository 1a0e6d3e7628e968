#include "simulation.h"

#include <algorithm>

#include "hmx/displaymanager/display.h"
#include "hmx/displaymanager/display_layers.h"
#include "hmx/displaymanager/displayable.h"
#include "hmx/popups/popup.h"

namespace hmxctl {
namespace {

namespace dm = kelo::hmx::displaymanager;

constexpr std::array table{
    Collection{"displays", "/state/displaymanager/displays", "/state/displaymanager/displays/*", "displays",
               kelo::record::describe<dm::Display>},
    Collection{"displayables", "/state/displaymanager/displayables", "/state/displaymanager/displayables/*", "displayables",
               kelo::record::describe<dm::Displayable>},
    Collection{"layers", "/state/displaymanager/layerConfig", "/state/displaymanager/layerConfig/*", "displays",
               kelo::record::describe<dm::DisplayLayers>},
    Collection{"input", "/state/inputmanager/displays", "/state/inputmanager/displays/*", "displays", nullptr},
    Collection{"popups", "/popups/*", "/popups/*/*", "popups", kelo::record::describe<kelo::hmx::popups::Popup>},
};

}  // namespace

std::span<const Collection> collections() noexcept {
    return table;
}

const Collection* findCollection(std::string_view name) noexcept {
    const auto* found = std::find_if(table.begin(), table.end(), [=](const Collection& each) { return each.name == name; });
    return found == table.end() ? nullptr : found;
}

}  // namespace hmxctl
