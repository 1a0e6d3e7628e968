// What of a simulated world can be changed, as `sim` takes it and completion offers it.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "failure.h"
#include "hmx/client/schema.h"

namespace hmxctl {

// A list of the world. Thread: any (a constant).
struct Collection {
    std::string_view name;
    std::string_view path;           // of the list, at the control service
    std::string_view elementPath;    // of one element
    std::string_view resource;       // whose elements go by the same names
    const Description& (*record)();  // that types its keys; null: by the look of the values

    // Popups are kept by display.
    bool isPerDisplay() const noexcept { return path.find('*') != std::string_view::npos; }
};

[[nodiscard]] std::span<const Collection> collections() noexcept;
// Null when there is none of that name.
[[nodiscard]] const Collection* findCollection(std::string_view name) noexcept;

inline constexpr std::array<std::string_view, 9> simActions{"set",  "add",   "remove",   "popup", "fault",
                                                            "plan", "world", "requests", "replay"};
inline constexpr std::array<std::string_view, 3> simManagers{"displaymanager", "inputmanager", "popupmanager"};
inline constexpr std::array<std::string_view, 12> faultKeys{"delay_ms", "jitter_ms", "silence", "status",      "garble", "close",
                                                            "crash",    "reopen_ms", "count",   "probability", "seed",   "now"};

}  // namespace hmxctl
