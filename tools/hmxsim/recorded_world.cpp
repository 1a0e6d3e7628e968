// A manager's lists are the world's own. The input manager, though, does not say which sets of regions it was given, but what
// they come to: a display's regions in its own order, which may be another than the simulator's. So that is kept as it is, and
// the sets are made such that they hold the same regions, for whoever changes one.

#include "recorded_world.h"

#include <algorithm>

#include "hmx/client/document.h"
#include "kelo/path.h"

namespace hmxsim {

namespace {

namespace inputs = kelo::hmx::inputregions;
using hmx::client::recordOf;
using hmx::recording::EntryKind;
using hmx::recording::SourceState;

template <class Region>
void addTo(std::vector<HmiRegions>& sets, const Region& region,
           kelo::optional<std::vector<Region>> inputs::HapticAndInputInfoPerLayer::*list) {
    const std::string hmi = region.hmiName.value_or("");
    auto set = std::find_if(sets.begin(), sets.end(), [&](const HmiRegions& each) { return each.hmi == hmi; });
    if (set == sets.end()) set = sets.insert(sets.end(), HmiRegions{hmi, {}, {}});
    auto& layers = set->infoForAllLayers;
    if (layers.empty() || layers.back().layer != region.layer) {
        layers.emplace_back();
        layers.back().layer = region.layer;
    }
    auto& regions = layers.back().*list;
    if (!regions) regions.emplace();
    regions->push_back(region);
}

std::vector<HmiRegions> setsOf(const inputs::HapticAndInputInfoSorted& surface) {
    std::vector<HmiRegions> sets;
    if (surface.regionInfoSorted) {
        for (const auto& region : *surface.regionInfoSorted)
            addTo(sets, region, &inputs::HapticAndInputInfoPerLayer::inputRegions);
    }
    if (surface.hapticInfoSorted) {
        for (const auto& region : *surface.hapticInfoSorted)
            addTo(sets, region, &inputs::HapticAndInputInfoPerLayer::hapticRegions);
    }
    return sets;
}

void describeDisplays(World& world, const SourceState& state) {
    namespace dm = kelo::hmx::displaymanager;
    if (!state.isKnown) return;
    if (state.source.path == "/displays") {
        world.displaysInfo = recordOf<dm::DisplaysInfo>(state.document);
        if (!world.displaysInfo.infoForAllDisplays) world.displaysInfo.infoForAllDisplays.emplace();
    } else if (state.source.path == "/displayables") {
        world.displayablesInfo = recordOf<dm::DisplayablesInfo>(state.document);
        if (!world.displayablesInfo.infoForAllDisplayables) world.displayablesInfo.infoForAllDisplayables.emplace();
    } else if (state.source.path == "/layerConfig") {
        world.layerConfig = recordOf<std::vector<dm::DisplayLayersArrayInner>>(state.document);
    }
}

void describeSurface(World& world, const std::string& name, const SourceState& state) {
    InputDisplay* display = world.findInputDisplay(name);
    if (state.kind == EntryKind::missing) {
        world.surfaces.erase(name);
        if (display != nullptr) world.inputDisplays.erase(world.inputDisplays.begin() + (display - world.inputDisplays.data()));
        return;
    }
    if (!state.isKnown) return;
    auto surface = recordOf<inputs::HapticAndInputInfoSorted>(state.document);
    if (display == nullptr) {
        display = &world.inputDisplays.emplace_back();
        display->name = name;
    }
    display->regions = setsOf(surface);
    world.surfaces.insert_or_assign(name, std::move(surface));
}

void describePopups(World& world, const std::string& name, const SourceState& state) {
    world.refusedPopups.erase(name);
    PopupDisplay* display = world.findPopupDisplay(name);
    if (state.kind == EntryKind::missing) {
        if (display != nullptr) world.popupDisplays.erase(world.popupDisplays.begin() + (display - world.popupDisplays.data()));
        world.refusedPopups.emplace(name, state.reason);
        return;
    }
    if (!state.isKnown) return;
    if (display == nullptr) display = &world.popupDisplays.emplace_back(PopupDisplay{name, {}});
    std::vector<PopupState> popups;
    for (auto& popup : recordOf<std::vector<kelo::hmx::popups::Popup>>(state.document)) {
        const PopupState* const before = world.findPopup(name, popup.name);
        PopupState& now = popups.emplace_back();
        const bool wasRequested = before != nullptr && before->popup.requested.value_or(false);
        now.popup = std::move(popup);
        now.hidden = now.popup.active.value_or(false) && !now.popup.visible.value_or(false);
        if (wasRequested) now.requestOrder = before->requestOrder;
        if (now.popup.requested.value_or(false) && !wasRequested) now.requestOrder = ++world.popupRequests;
    }
    display->popups = std::move(popups);
}

}  // namespace

std::optional<ManagerId> managerAt(std::string_view servicePath) noexcept {
    for (const ManagerId id : allManagers) {
        if (servicePathOf(id) == servicePath) return id;
    }
    return {};
}

void describe(World& world, const SourceState& state) {
    const std::optional<ManagerId> manager = managerAt(state.source.service);
    const bool isWhole = state.source.parameters.is_null() || state.source.parameters.empty();
    if (!manager || !isWhole || (state.kind != EntryKind::state && state.kind != EntryKind::missing)) return;
    if (*manager == ManagerId::display) return describeDisplays(world, state);
    std::string display;
    if (!kelo::Path::matches(state.source.path, "/*") || !kelo::Path{state.source.path}.part(0, display)) return;
    if (*manager == ManagerId::input) return describeSurface(world, display, state);
    describePopups(world, display, state);
}

}  // namespace hmxsim
