// The reasons for which a request for an element or a list is refused, for all who serve the resources.
#pragma once

namespace hmx::refusals {

// No element has the id that was asked for.
inline constexpr char displayUnknown[] = "[DisplayBridge::retrieveDisplayObject: display id not found]";
inline constexpr char displayableUnknown[] = "[DisplayableBridge::retrieveDisplayableObject displayable id not found]";
inline constexpr char layersUnknown[] = "[LayersBridge::retrieveLayerconfigurationObject layer config id not found]";
inline constexpr char popupUnknown[] = "[PopupBridge::retrievePopupObject: popup id not found]";

// An element without a name is in the list, but nobody can ask for it alone.
inline constexpr char displayNameless[] =
    "[DisplayBridge::retrieveDisplayObject a display with an empty name cannot be asked for]";
inline constexpr char layersNameless[] =
    "[LayersBridge::retrieveLayerconfigurationObject a display with an empty name cannot be asked for]";
inline constexpr char popupNameless[] =
    "[PopupBridge a popup with an empty name, or on a display with an empty name, cannot be asked for]";

// A list of popups is that of one display.
inline constexpr char popupsNeedDisplay[] = "[PopupBridge::retrievePopupObjects display has to be specified in tolu params]";

}  // namespace hmx::refusals
