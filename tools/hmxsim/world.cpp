#include "world.h"

#include <algorithm>
#include <utility>

namespace hmxsim {

namespace {

using kelo::hmx::displaymanager::Display;
using kelo::hmx::displaymanager::Displayable;
using kelo::hmx::displaymanager::DisplayLayers;
using kelo::hmx::displaymanager::DisplayLayersArrayInner;
using kelo::hmx::popups::Popup;

template <class List, class Predicate>
auto* findIn(List&& list, Predicate predicate) noexcept {
    const auto found = std::find_if(list.begin(), list.end(), predicate);
    return found == list.end() ? nullptr : &*found;
}

}  // namespace

Display* World::findDisplay(std::string_view name) noexcept {
    return findIn(displays(), [&](const Display& display) { return display.name && *display.name == name; });
}

Displayable* World::findDisplayable(int id) noexcept {
    return findIn(displayables(), [&](const Displayable& displayable) { return displayable.id == id; });
}

DisplayLayersArrayInner* World::findLayerEntry(std::string_view display) noexcept {
    return findIn(layerConfig, [&](const DisplayLayersArrayInner& candidate) {
        const auto& layers = candidate.layersForDisplay;
        return layers && layers->display && layers->display->name && *layers->display->name == display;
    });
}

DisplayLayers* World::findLayers(std::string_view display) noexcept {
    DisplayLayersArrayInner* const entry = findLayerEntry(display);
    return entry == nullptr ? nullptr : &*entry->layersForDisplay;
}

InputDisplay* World::findInputDisplay(std::string_view name) noexcept {
    return findIn(inputDisplays, [&](const InputDisplay& display) { return display.name == name; });
}

PopupDisplay* World::findPopupDisplay(std::string_view name) noexcept {
    return findIn(popupDisplays, [&](const PopupDisplay& display) { return display.name == name; });
}

PopupState* World::findPopup(std::string_view display, std::string_view name) noexcept {
    PopupDisplay* const place = findPopupDisplay(display);
    if (place == nullptr) return nullptr;
    return findIn(place->popups, [&](const PopupState& state) { return state.popup.name == name; });
}

void World::setPopup(PopupDisplay& display, PopupState& state, Popup popup, bool namesRequested, bool namesVisible) {
    const auto requested = [](const Popup& which) { return which.requested.value_or(false); };
    const Popup before = std::exchange(state.popup, std::move(popup));
    const std::string slot = slotOf(state.popup);
    const std::string slotBefore = slotOf(before);
    const bool wasHidden = state.hidden;
    if (namesRequested) state.hidden = false;
    if (namesVisible) state.hidden = !state.popup.visible.value_or(false);
    if (requested(state.popup) && !requested(before)) state.requestOrder = ++popupRequests;
    if (!namesVisible && requested(state.popup) == requested(before) && state.hidden == wasHidden && slot == slotBefore &&
        state.popup.priorityInlayer.value_or(0) == before.priorityInlayer.value_or(0)) {
        return;
    }
    arbitrate(display.popups, slot);
    if (slot != slotBefore) arbitrate(display.popups, slotBefore);
}

}  // namespace hmxsim
