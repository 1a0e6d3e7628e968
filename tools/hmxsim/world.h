// The simulated world: all that the three managers report.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "hmx/displaymanager/display_layers_array_inner.h"
#include "hmx/displaymanager/displayables_info.h"
#include "hmx/displaymanager/displays_info.h"
#include "hmx/inputregions/haptic_and_input_info_sorted.h"
#include "input_display.h"
#include "popup_state.h"

namespace hmxsim {

// Elements keep the order of the file. Lookups give null for what is not there. Thread: the simulator's worker (a value).
struct World {
    // As they are reported; the lists in them are always there.
    kelo::hmx::displaymanager::DisplaysInfo displaysInfo{std::vector<kelo::hmx::displaymanager::Display>{}};
    kelo::hmx::displaymanager::DisplayablesInfo displayablesInfo{std::vector<kelo::hmx::displaymanager::Displayable>{}};
    std::vector<kelo::hmx::displaymanager::DisplayLayersArrayInner> layerConfig;
    std::vector<InputDisplay> inputDisplays;
    std::vector<PopupDisplay> popupDisplays;
    std::uint64_t popupRequests = 0;  // counts them, for their order
    // What a recording says, in place of what follows from the rest; by display.
    std::map<std::string, kelo::hmx::inputregions::HapticAndInputInfoSorted, std::less<>> surfaces;
    std::map<std::string, std::string, std::less<>> refusedPopups;  // why

    std::vector<kelo::hmx::displaymanager::Display>& displays() noexcept { return *displaysInfo.infoForAllDisplays; }
    std::vector<kelo::hmx::displaymanager::Displayable>& displayables() noexcept {
        return *displayablesInfo.infoForAllDisplayables;
    }

    kelo::hmx::displaymanager::Display* findDisplay(std::string_view name) noexcept;
    kelo::hmx::displaymanager::Displayable* findDisplayable(int id) noexcept;
    kelo::hmx::displaymanager::DisplayLayersArrayInner* findLayerEntry(std::string_view display) noexcept;
    kelo::hmx::displaymanager::DisplayLayers* findLayers(std::string_view display) noexcept;
    InputDisplay* findInputDisplay(std::string_view name) noexcept;
    PopupDisplay* findPopupDisplay(std::string_view name) noexcept;
    PopupState* findPopup(std::string_view display, std::string_view name) noexcept;

    // Replaces a popup's members and decides about the slots that this concerns. `namesRequested`, `namesVisible`: whether the
    // change is about these members. A request, or its end, also ends being hidden; a popup made invisible is hidden until made
    // visible.
    void setPopup(PopupDisplay& display, PopupState& state, kelo::hmx::popups::Popup popup, bool namesRequested,
                  bool namesVisible);
};

}  // namespace hmxsim
