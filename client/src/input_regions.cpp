#include "hmx/client/input_regions.h"

#include <climits>
#include <memory>
#include <utility>

#include "hmx/inputregions/service_path.h"
#include "input_surface.h"

namespace hmx::client {
namespace {

int number(const Json& object, std::string_view key) {
    const Json& value = member(object, key);
    return value.is_number_integer() ? value.get<int>() : 0;
}

}  // namespace

Task<std::vector<Json>> readInputRegions(Client& client, std::string display, Deadline deadline) {
    const Service service = co_await client.service(std::string{kelo::hmx::inputregions::servicePath}, deadline);
    Inbox inbox{service.dispatcher()};
    Stream stream = openSurface(service, display, inbox, 0, true);
    const std::optional<Event> event = co_await inbox.take(deadline);
    const Query query = surfaceQuery(display);
    if (!event) throw service.late(query);
    stream.release();
    if (const std::optional<Error> error = service.errorOf(query, *event)) throw Error{*error};
    co_return regionsOf(event->response.payload());
}

const Json* findLayer(const Json& layers, const std::string& name) {
    for (const Json& layer : layers) {
        if (!name.empty() && text(layer, "name") == name) return &layer;
    }
    for (const Json& layer : layers) {
        const Json& id = member(layer, "id");
        if (id.is_number_integer() && compact(id) == name) return &layer;
    }
    return nullptr;
}

HitRegion asHitRegion(const Json& region, const Json& layers) {
    HitRegion hit;
    const Json* layer = findLayer(layers, text(region, "layer"));
    if (layer != nullptr && member(*layer, "active") != false) {
        hit.layer = static_cast<std::size_t>(layer - &layers.front());
        // A layer without a place in the order lies at the very back.
        const Json& zpos = member(*layer, "zpos");
        hit.zpos = zpos.is_number_integer() ? zpos.get<int>() : INT_MIN;
    }
    const Json& bounds = member(region, "bounds");
    hit.hasBounds = bounds.is_object();
    hit.left = number(member(bounds, "pointMin"), "x");
    hit.top = number(member(bounds, "pointMin"), "y");
    hit.width = number(bounds, "width");
    hit.height = number(bounds, "height");
    const Json& margin = member(region, "hitOutside");
    if (margin.is_object()) hit.hitOutside = TouchPoint{number(margin, "x"), number(margin, "y")};
    hit.exclusive = member(region, "exclusive") == true;
    hit.keepFocus = member(region, "keepFocus") == true;
    hit.notifyOutside = member(region, "notifyOutside") == true;
    hit.dropEvent = member(region, "dropEvent") == true;
    hit.translateInput = member(region, "translateInput") == true;
    hit.translateX = number(region, "translateX");
    hit.translateY = number(region, "translateY");
    return hit;
}

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

}  // namespace hmx::client
