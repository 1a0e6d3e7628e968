#include "input_regions.h"

#include <climits>
#include <memory>
#include <utility>

#include "hmx/inputregions/hmx_inputregions_client.h"
#include "hmx/inputregions/service_path.h"
#include "inbox.h"
#include "kelo/serializer/factory.h"

namespace hmxctl {
namespace {

using kelo::hmx::inputregions::HapticAndInputInfoSorted;
using kelo::hmx::inputregions::InputRegion;

// Keeps the one answer for the thread that waits, and tells it through the inbox. Thread: the runtime's.
class RegionsHandler final : public kelo::IResponseHandler<HapticAndInputInfoSorted> {
public:
    struct Result {
        std::shared_ptr<Inbox> inbox = std::make_shared<Inbox>();
        HapticAndInputInfoSorted regions;  // complete before the inbox has its event
    };

    explicit RegionsHandler(std::shared_ptr<Result> result) : result_{std::move(result)} {}

    bool onNext(const HapticAndInputInfoSorted& regions) override {
        result_->regions = regions;
        result_->inbox->put({0, Event::Kind::next, kelo::Response{200}});
        return true;
    }
    void onError(const kelo::Response& response) override { result_->inbox->put({0, Event::Kind::error, response}); }
    void onCompleted() override { result_->inbox->put({0, Event::Kind::completed, {}}); }
    bool isOneShot() const override { return true; }

private:
    std::shared_ptr<Result> result_;
};

Json asJson(const InputRegion& region) {
    const auto writer = kelo::serializer::Factory::createSerializer(kelo::mimetypes::MimeTypeID::json);
    util::ByteBufferWriter bytes{512};
    if (writer->start(bytes) || serialize(*writer, region) || writer->finish()) return Json::object();
    return decode(kelo::Payload::borrow(bytes.bytes(), kelo::MimeType{kelo::mimetypes::MimeTypeID::json}));
}

int number(const Json& object, std::string_view key) {
    const Json& value = member(object, key);
    return value.is_number_integer() ? value.get<int>() : 0;
}

bool flag(const Json& object, std::string_view key) {
    return member(object, key) == true;
}

}  // namespace

std::vector<Json> readInputRegions(Context& context, const std::string& display) {
    const Service service = context.service(kelo::hmx::inputregions::servicePath);
    kelo::hmx::inputregions::Hmx_inputregionsClient client{&service.api(), service.mimeType()};
    const auto result = std::make_shared<RegionsHandler::Result>();
    void* handle = client.getInputRegionsForDisplay(std::make_unique<RegionsHandler>(result), display);
    const std::optional<Event> event = result->inbox->take(context.deadline);
    const Query query{"retrieve", "/" + display, nullptr};
    if (!event) {
        if (handle != kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE) service.api().cancel(handle);
        throw service.timedOut(query);
    }
    if (event->kind == Event::Kind::error) throw service.failure(query, event->response);
    std::vector<Json> regions;
    if (!result->regions.regionInfoSorted) return regions;
    for (const InputRegion& region : *result->regions.regionInfoSorted) regions.push_back(asJson(region));
    return regions;
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
    hit.exclusive = flag(region, "exclusive");
    hit.keepFocus = flag(region, "keepFocus");
    hit.notifyOutside = flag(region, "notifyOutside");
    hit.dropEvent = flag(region, "dropEvent");
    hit.translateInput = flag(region, "translateInput");
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

}  // namespace hmxctl
