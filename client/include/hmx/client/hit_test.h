// Which input region receives a touch, and which it covers.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace hmx::client {

struct TouchPoint {
    int x = 0;
    int y = 0;
};

// An input region as the input manager reports it, with the place of its layer. Absent members have the values given here.
// Thread: any (a value).
struct HitRegion {
    std::optional<int> zpos;  // of its layer on this display; nothing when the display does not show it
    std::size_t layer = 0;    // which of the display's layers: two may have one zpos
    bool hasBounds = false;
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
    bool exclusive = false;
    bool keepFocus = false;
    std::optional<TouchPoint> hitOutside;  // how far outside its bounds, to either side, a touch still counts
    bool notifyOutside = false;
    bool dropEvent = false;
    bool translateInput = false;
    int translateX = 0;
    int translateY = 0;
};

enum class Fate : unsigned char {
    receives,
    drops,   // swallows the touch: nobody receives it here or below
    keptOff  // something above was exclusive, or dropped the touch
};

struct Hit {
    std::size_t region = 0;  // index into what was asked about
    Fate fate = Fate::keptOff;
    bool margin = false;   // only its `hitOutside` margin was touched
    TouchPoint delivered;  // where it sees the touch
    bool takesFocus = false;
};

struct HitResult {
    std::vector<Hit> under;     // the regions under the touch, topmost first: that one covers the others
    std::vector<Hit> notified;  // told of a touch outside of them, topmost first
};

// The rules:
//
//  1. Regions are ordered by the zpos of their layer, highest first, and within a layer as the input manager lists them, first
//     one topmost. A region whose layer the display does not have, or has switched off, takes no part.
//  2. A region lies under the touch if its bounds hold the point: left and top edge belong to it, right and bottom edge do not.
//     Without bounds, or with an empty one, it covers nothing.
//  3. Where no region of a layer holds the point, those of that layer count whose bounds, widened by `hitOutside` (posX to the
//     left and right, posY up and down), do: a near miss hits, but never takes a touch from a neighbour of the same layer.
//  4. The topmost region under the touch receives it and covers the others. These receive it as well, from the top down, until
//     one is `exclusive`: that is the last to receive it. A region with `dropEvent` swallows the touch, also from those below.
//  5. A region not under the touch that asks with `notifyOutside` is told of it, unless it lies below an exclusive region that
//     received the touch or one that dropped it.
//  6. `translateInput` adds translateX and translateY to the coordinates that a region sees; the others see the display's.
//  7. The topmost receiver takes the input focus, unless its `keepFocus` leaves the focus where it is.
[[nodiscard]] HitResult hitTest(const std::vector<HitRegion>& regions, TouchPoint touch);

}  // namespace hmx::client
