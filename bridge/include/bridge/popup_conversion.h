// Popups as the popup manager knows them, and as elements of our resource.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "bridge/identity.h"
#include "hmx/element_ids.h"
#include "hmx/popup_object.h"
#include "hmx/popups/popup.h"
#include "hmx/popups/popup_state_filter.h"
#include "hmx/popups/popup_state_update.h"
#include "hmx/update_popup_object.h"
#include "util/config/value.h"

namespace hmx {

// Identifies a popup upstream. Thread: any (a value).
struct PopupKey {
    std::string display;
    std::string name;
};

// The same as a reference. Thread: any (a value).
struct PopupKeyView {
    std::string_view display;
    std::string_view name;

    explicit operator PopupKey() const { return {std::string{display}, std::string{name}}; }
};

// Hashes either.
struct PopupKeyHash {
    using is_transparent = void;
    template <class Key>
    std::size_t operator()(const Key& key) const noexcept {
        const std::hash<std::string_view> hash;
        return hash(key.display) * 31 + hash(key.name);
    }
};
struct PopupKeyEqual {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const noexcept {
        return a.name == b.name && a.display == b.display;
    }
};

// The length of a key's texts.
inline std::size_t lengthOf(const PopupKey& popup) noexcept {
    return popup.display.size() + popup.name.size();
}

// The name that a popup's id is made from. Thread: any.
[[nodiscard]] inline std::string popupIdName(const PopupKey& popup) {
    return popupIdName(popup.display, popup.name);
}

// Returns the element; `identity` must be its own. Members that upstream does not report are absent. Thread: any.
[[nodiscard]] kelo::hmx::PopupObject toPopupObject(const std::string& display, const kelo::hmx::popups::Popup& popup,
                                                   const Identity& identity);

// The states that a query asks for; values of the wrong type are ignored. Thread: any.
[[nodiscard]] kelo::hmx::popups::PopupStateFilter toStateFilter(const util::config::Dictionary& query);

// Thread: any.
[[nodiscard]] kelo::hmx::popups::PopupStateUpdate toStateUpdate(const kelo::hmx::UpdatePopupObject& update);

}  // namespace hmx
