// The popups of a display, and which of them may show.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hmx/popups/popup.h"

namespace hmxsim {

// A popup, and what the popup manager remembers of it beyond what it reports. Thread: any (a value).
struct PopupState {
    kelo::hmx::popups::Popup popup;
    std::uint64_t requestOrder = 0;  // the smaller, the earlier it was requested
    bool hidden = false;             // asked not to be visible, though it may be active
};

// Thread: any (a value).
struct PopupDisplay {
    std::string name;
    std::vector<PopupState> popups;
};

// Decides anew about the popups of one slot; popups without a slot share the slot "". Of those requested, the one with the
// highest priority (none counts as 0), and among equals the one requested first, is active, and visible unless it is hidden; the
// others are suppressed. A popup that is not requested is none of the three. An absent flag stays absent where it would be false.
void arbitrate(std::vector<PopupState>& popups, const std::string& slot);

// The popup's slot, "" when it has none.
std::string slotOf(const kelo::hmx::popups::Popup& popup);

}  // namespace hmxsim
