#include "popup_state.h"

namespace hmxsim {

namespace {

using kelo::hmx::popups::Popup;

void setFlag(kelo::optional<bool>& flag, bool value) {
    if (flag.value_or(false) != value) flag = value;
}

bool goesBefore(const PopupState& a, const PopupState& b) {
    const int priorityOfA = a.popup.priorityInlayer.value_or(0);
    const int priorityOfB = b.popup.priorityInlayer.value_or(0);
    return priorityOfA != priorityOfB ? priorityOfA > priorityOfB : a.requestOrder < b.requestOrder;
}

}  // namespace

void arbitrate(std::vector<PopupState>& popups, const std::string& slot) {
    const PopupState* winner = nullptr;
    for (const PopupState& state : popups) {
        if (!state.popup.requested.value_or(false) || slotOf(state.popup) != slot) continue;
        if (winner == nullptr || goesBefore(state, *winner)) winner = &state;
    }
    for (PopupState& state : popups) {
        if (slotOf(state.popup) != slot) continue;
        const bool wins = &state == winner;
        setFlag(state.popup.active, wins);
        setFlag(state.popup.visible, wins && !state.hidden);
        setFlag(state.popup.suppressed, !wins && state.popup.requested.value_or(false));
    }
}

std::string slotOf(const Popup& popup) {
    return popup.slot.value_or(std::string{});
}

}  // namespace hmxsim
