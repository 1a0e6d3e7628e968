#include "hmx/client/hit_test.h"

#include <algorithm>
#include <cstdint>
#include <set>

namespace hmx::client {
namespace {

// Sums in 64 bits: edges near the ends of int must not wrap.
bool holds(const HitRegion& region, TouchPoint touch, TouchPoint margin) noexcept {
    if (!region.hasBounds || region.width <= 0 || region.height <= 0) return false;
    const auto within = [](std::int64_t at, std::int64_t first, std::int64_t length, std::int64_t extra) {
        return at >= first - extra && at < first + length + extra;
    };
    return within(touch.x, region.left, region.width, margin.x) && within(touch.y, region.top, region.height, margin.y);
}

bool holdsInMargin(const HitRegion& region, TouchPoint touch) noexcept {
    if (!region.hitOutside) return false;
    return holds(region, touch, {std::max(0, region.hitOutside->x), std::max(0, region.hitOutside->y)});
}

enum class Contact : std::uint8_t { none, margin, inside };

// Rules 2 and 3, for `order`'s regions.
std::vector<Contact> contacts(const std::vector<HitRegion>& regions, const std::vector<std::size_t>& order, TouchPoint touch) {
    std::vector<Contact> found(regions.size(), Contact::none);
    std::set<std::size_t> hitLayers;
    for (const std::size_t i : order) {
        if (!holds(regions[i], touch, {})) continue;
        found[i] = Contact::inside;
        hitLayers.insert(regions[i].layer);
    }
    for (const std::size_t i : order) {
        if (!hitLayers.contains(regions[i].layer) && holdsInMargin(regions[i], touch)) found[i] = Contact::margin;
    }
    return found;
}

int wrapSafeSum(int a, int b) noexcept {
    const std::int64_t sum = std::int64_t{a} + b;
    return static_cast<int>(std::clamp<std::int64_t>(sum, INT32_MIN, INT32_MAX));
}

}  // namespace

HitResult hitTest(const std::vector<HitRegion>& regions, TouchPoint touch) {
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < regions.size(); ++i) {
        if (regions[i].zpos) order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return *regions[a].zpos > *regions[b].zpos; });
    const std::vector<Contact> contact = contacts(regions, order, touch);

    HitResult result;
    bool open = true;  // nothing above has kept the touch to itself
    for (const std::size_t i : order) {
        const HitRegion& region = regions[i];
        Hit hit{.region = i, .margin = contact[i] == Contact::margin, .delivered = touch};
        if (region.translateInput) {
            hit.delivered = {wrapSafeSum(touch.x, region.translateX), wrapSafeSum(touch.y, region.translateY)};
        }
        if (contact[i] == Contact::none) {
            if (open && region.notifyOutside) result.notified.push_back(hit);
            continue;
        }
        if (open) {
            hit.fate = region.dropEvent ? Fate::drops : Fate::receives;
            hit.takesFocus = hit.fate == Fate::receives && result.under.empty() && !region.keepFocus;
            open = !region.dropEvent && !region.exclusive;
        }
        result.under.push_back(hit);
    }
    return result;
}

}  // namespace hmx::client
