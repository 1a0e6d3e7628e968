// One complete object of each type, and its document as sent over the wire.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "hmx/display_object.h"
#include "hmx/displayable_object.h"
#include "hmx/insert_regionconfiguration_object.h"
#include "hmx/layerconfiguration_object.h"
#include "hmx/popup_object.h"
#include "hmx/regionconfiguration_object.h"
#include "hmx/update_popup_object.h"
#include "hmx/update_regionconfiguration_object.h"
#include "kelo/uuid.h"

namespace samples {

using namespace kelo::hmx;

inline const std::string idText = "19243473-0126-5f4b-b1bf-4879152c72e5";  // of "hmx/displays/Driver_Display"

template <class T>
std::shared_ptr<T> shared(T value) {
    return std::make_shared<T>(std::move(value));
}

// An element with nothing but its id.
template <class T>
T bare() {
    const std::UUID id = kelo::uuid::createFromName("hmx/displays/Driver_Display");
    return T{id, T::elementUri(id)};
}

template <class T>
T named(const char* name) {
    T element = bare<T>();
    element.name = name;
    return element;
}

inline DisplayObject display() {
    auto object = named<DisplayObject>("Driver_Display");
    object.connector = std::string{"DP-1"};
    object.displayID = 1;
    object.displayInternalID = -2;
    object.resolution = shared(DisplayResolutionType{.height = 720, .width = 1920});
    object.terminal = 0;
    object.touchSupport = false;
    return object;
}
inline const std::string displayJson = R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"Driver_Display",)"
                                       R"("uri":"/hmx/displays/19243473-0126-5f4b-b1bf-4879152c72e5","connector":"DP-1",)"
                                       R"("displayID":1,"displayInternalID":-2,"resolution":{"height":720,"width":1920},)"
                                       R"("terminal":0,"touchSupport":false})";

inline DisplayableObject displayable() {
    auto object = named<DisplayableObject>("42");
    object.displayableID = 42;
    object.size = shared(DisplayResolutionType{.height = 3, .width = {}});
    object.type = 7;
    return object;
}
inline const std::string displayableJson = R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"42",)"
                                           R"("uri":"/hmx/displayables/19243473-0126-5f4b-b1bf-4879152c72e5",)"
                                           R"("displayableID":42,"size":{"height":3},"type":7})";

inline LayerconfigurationObject layers() {
    auto object = named<LayerconfigurationObject>("Driver_Display");
    object.layers = {{shared(LayerType{.id = 3, .name = std::string{"map"}, .zpos = -1}), shared(LayerType{})}};
    return object;
}
inline const std::string layersJson = R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"Driver_Display",)"
                                      R"("uri":"/hmx/layerconfigurations/19243473-0126-5f4b-b1bf-4879152c72e5",)"
                                      R"("layers":[{"id":3,"name":"map","zpos":-1},{}]})";

inline std::shared_ptr<HapticAndInputInfoPerHMIType> regions() {
    const auto bounds = [](int from) {
        return shared(RectangleType{
            .height = from, .upperLeftPoint = shared(PointType{.posX = from + 1, .posY = from + 2}), .width = from + 3});
    };
    const auto haptic = shared(HapticRegionType{.bounds = bounds(1), .hapticFeedback = 5, .hapticRegion = 6});
    const auto input = shared(InputRegionType{.bounds = bounds(7),
                                              .exclusive = true,
                                              .hitOutside = shared(PointType{.posX = 11, .posY = 12}),
                                              .keepFocus = false,
                                              .notifyOutside = true,
                                              .translateInput = false,
                                              .translateX = 13,
                                              .translateY = 14});
    const auto layer = shared(
        HapticAndInputInfoPerLayerType{.hapticRegions = {{haptic}}, .inputRegions = {{input}}, .layer = std::string{"popup"}});
    return shared(HapticAndInputInfoPerHMIType{.infoForAllLayers = {{layer}}});
}
inline const std::string regionsJson =
    R"({"infoForAllLayers":[{"hapticRegions":[{"bounds":{"height":1,"upperLeftPoint":{"posX":2,"posY":3},"width":4},)"
    R"("hapticFeedback":5,"hapticRegion":6}],)"
    R"("inputRegions":[{"bounds":{"height":7,"upperLeftPoint":{"posX":8,"posY":9},"width":10},"exclusive":true,)"
    R"("hitOutside":{"posX":11,"posY":12},"keepFocus":false,"notifyOutside":true,"translateInput":false,)"
    R"("translateX":13,"translateY":14}],"layer":"popup"}]})";

inline RegionconfigurationObject regionconfiguration() {
    auto object = named<RegionconfigurationObject>("regionConfig_");
    object.display = RegionconfigurationObjectDisplayEnum::Driver_Display;
    object.hmi = RegionconfigurationObjectHmiEnum::HMI_ID_ANDROID_DRIVER;
    object.regions = regions();
    object.subComponent = std::string{"left"};
    return object;
}
inline const std::string regionconfigurationJson = R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"regionConfig_",)"
                                                   R"("uri":"/hmx/regionconfigurations/19243473-0126-5f4b-b1bf-4879152c72e5",)"
                                                   R"("display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","regions":)" +
                                                   regionsJson + R"(,"subComponent":"left"})";

inline PopupObject popup() {
    auto object = named<PopupObject>("call");
    object.active = true;
    object.display = std::string{"Driver_Display"};
    object.isFullscreen = false;
    object.popupLayerCompositing = std::string{"c"};
    object.popupLayerLogical = std::string{"l"};
    object.preventAnimation = true;
    object.priorityInlayer = 9;
    object.requestData = std::string{"\xc3\xa4 \"\\\n"};
    object.requested = true;
    object.slot = std::string{"top"};
    object.suppressed = false;
    object.visible = true;
    return object;
}
inline const std::string popupJson = R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"call",)"
                                     R"("uri":"/hmx/popups/19243473-0126-5f4b-b1bf-4879152c72e5","active":true,)"
                                     R"("display":"Driver_Display","isFullscreen":false,"popupLayerCompositing":"c",)"
                                     R"("popupLayerLogical":"l","preventAnimation":true,"priorityInlayer":9,)"
                                     "\"requestData\":\"\xc3\xa4 \\\"\\\\\\n\","
                                     R"("requested":true,"slot":"top","suppressed":false,"visible":true})";

inline UpdatePopupObject updatePopup() {
    return {.requestData = std::string{"x"}, .requested = false, .visible = true};
}
inline const std::string updatePopupJson = R"({"requestData":"x","requested":false,"visible":true})";

inline InsertRegionconfigurationObject insertRegionconfiguration() {
    return {.display = RegionconfigurationObjectDisplayEnum::Co_Driver_Display,
            .hmi = RegionconfigurationObjectHmiEnum::HMI_ID_ANDROID_DRIVER_POPUP,
            .regions = regions(),
            .subComponent = std::string{"right"}};
}
inline const std::string insertRegionconfigurationJson =
    R"({"display":"Co_Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER_POPUP","regions":)" + regionsJson +
    R"(,"subComponent":"right"})";

inline UpdateRegionconfigurationObject updateRegionconfiguration() {
    return {.regions = regions()};
}
inline const std::string updateRegionconfigurationJson = R"({"regions":)" + regionsJson + "}";

template <class T>
kelo::tolu::ListPage<T> pageOf(T element) {
    kelo::tolu::ListPage<T> page;
    page.total = 1;
    page.data.push_back(shared(std::move(element)));
    return page;
}
inline std::string pageJson(const std::string& element) {
    return R"({"total":1,"totalPages":1,"data":[)" + element + "]}";
}

}  // namespace samples
