#include "region_text.h"

#include "hmx/client/input_regions.h"

namespace hmxctl {

std::string regionName(const Json& region) {
    std::string name = text(region, "hmiName");
    const Json& number = member(region, "regionID");
    if (!number.is_null()) name += (name.empty() ? "#" : " #") + compact(number);
    return name.empty() ? "unnamed" : name;
}

std::string boundsText(const Json& region) {
    const HitRegion hit = asHitRegion(region, Json::array());
    if (!hit.hasBounds) return "no bounds";
    return std::to_string(hit.width) + "x" + std::to_string(hit.height) + " at " + std::to_string(hit.left) + "," +
           std::to_string(hit.top);
}

}  // namespace hmxctl
