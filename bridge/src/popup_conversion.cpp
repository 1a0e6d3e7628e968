#include "bridge/popup_conversion.h"

namespace hmx {

namespace {

void take(const util::config::Dictionary& query, std::string_view key, kelo::optional<bool>& out) {
    const util::config::Value* const value = query.find(key);
    if (value != nullptr && value->asBool() != nullptr) out = *value->asBool();
}

void take(const util::config::Dictionary& query, std::string_view key, kelo::optional<std::string>& out) {
    const util::config::Value* const value = query.find(key);
    if (value != nullptr && value->asString() != nullptr) out = *value->asString();
}

}  // namespace

kelo::hmx::PopupObject toPopupObject(const std::string& display, const kelo::hmx::popups::Popup& popup,
                                     const Identity& identity) {
    kelo::hmx::PopupObject object{identity.id, identity.uri};
    object.name = popup.name;
    object.display = display;
    object.active = popup.active;
    object.isFullscreen = popup.isFullscreen;
    object.popupLayerCompositing = popup.popupLayerCompositing;
    object.popupLayerLogical = popup.popupLayerLogical;
    object.preventAnimation = popup.preventAnimation;
    object.priorityInlayer = popup.priorityInlayer;
    object.requestData = popup.requestData;
    object.requested = popup.requested;
    object.slot = popup.slot;
    object.suppressed = popup.suppressed;
    object.visible = popup.visible;
    return object;
}

kelo::hmx::popups::PopupStateFilter toStateFilter(const util::config::Dictionary& query) {
    kelo::hmx::popups::PopupStateFilter filter;
    take(query, "active", filter.active);
    take(query, "isFullscreen", filter.isFullscreen);
    take(query, "requested", filter.requested);
    take(query, "slot", filter.slot);
    take(query, "visible", filter.visible);
    return filter;
}

kelo::hmx::popups::PopupStateUpdate toStateUpdate(const kelo::hmx::UpdatePopupObject& update) {
    return {.requested = update.requested, .visible = update.visible, .requestData = update.requestData};
}

}  // namespace hmx
