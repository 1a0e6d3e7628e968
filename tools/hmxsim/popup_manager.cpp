#include "popup_manager.h"

#include "hmx/popups/popup_state_filter.h"
#include "hmx/popups/popup_state_update.h"

namespace hmxsim {

namespace {

namespace popups = kelo::hmx::popups;
using kelo::Response;
using kelo::commands::retrieve;
using kelo::commands::update;

Response noPopup(const Call& call) {
    return notFound("no such popup: " + call.first + '/' + call.second);
}

template <class T>
bool passes(const kelo::optional<T>& wanted, const kelo::optional<T>& actual) {
    return !wanted || (actual && *actual == *wanted);
}

// A filter on a member that the popup does not have does not match.
bool passes(const popups::PopupStateFilter& filter, const popups::Popup& popup) {
    return passes(filter.slot, popup.slot) && passes(filter.isFullscreen, popup.isFullscreen) &&
           passes(filter.requested, popup.requested) && passes(filter.active, popup.active) &&
           passes(filter.visible, popup.visible) && passes(filter.wakeupFromOnNoDisplay, popup.wakeupFromOnNoDisplay) &&
           passes(filter.wakeupFromStandby, popup.wakeupFromStandby) &&
           passes(filter.wakeupFromStandbyRestricted, popup.wakeupFromStandbyRestricted);
}

}  // namespace

const Route<PopupManager> PopupManager::routes[] = {
    {retrieve, "/*", &PopupManager::popups},
    {retrieve, "/*/*", &PopupManager::popup},
    {update, "/*/*", &PopupManager::updatePopup},
};

Response PopupManager::answer(const kelo::Request& request) {
    return dispatch<PopupManager>(*this, routes, request);
}

Response PopupManager::popups(const Call& call) {
    const PopupDisplay* const display = world_.findPopupDisplay(call.first);
    if (const auto refused = world_.refusedPopups.find(call.first); refused != world_.refusedPopups.end()) {
        return notFound(refused->second);
    }
    if (display == nullptr && world_.findDisplay(call.first) == nullptr) return noDisplay(call.first);
    Response answer;
    popups::PopupStateFilter filter;
    if (!call.request.payload().empty() && bodyFails(call.request, filter, "PopupStateFilter", answer)) return answer;
    std::vector<popups::Popup> found;
    // A display of the world may have no popups yet.
    static const std::vector<PopupState> none;
    for (const PopupState& state : display != nullptr ? display->popups : none) {
        if (passes(filter, state.popup)) found.push_back(state.popup);
    }
    return valueFor(call.request, found);
}

Response PopupManager::popup(const Call& call) {
    const PopupState* const state = world_.findPopup(call.first, call.second);
    return state != nullptr ? valueFor(call.request, state->popup) : noPopup(call);
}

Response PopupManager::updatePopup(const Call& call) {
    PopupState* const state = world_.findPopup(call.first, call.second);
    if (state == nullptr) return noPopup(call);
    Response answer;
    popups::PopupStateUpdate change;
    if (bodyFails(call.request, change, "PopupStateUpdate", answer)) return answer;
    popups::Popup popup = state->popup;
    if (change.requested) popup.requested = change.requested;
    if (change.visible) popup.visible = change.visible;
    if (change.requestData) popup.requestData = change.requestData;
    world_.setPopup(*world_.findPopupDisplay(call.first), *state, std::move(popup), bool(change.requested), bool(change.visible));
    return valueFor(call.request, state->popup);
}

}  // namespace hmxsim
