#include "input_surface.h"

#include <memory>
#include <utility>

#include "hmx/inputregions/hmx_inputregions_client.h"

namespace hmx::client {
namespace {

using kelo::hmx::inputregions::HapticAndInputInfoSorted;

// Writes what the stub has read as JSON, for whoever takes documents. Thread: the runtime's.
class SurfaceHandler final : public kelo::IResponseHandler<HapticAndInputInfoSorted> {
public:
    explicit SurfaceHandler(std::unique_ptr<kelo::IResponseHandler<kelo::Response>> next) : next_{std::move(next)} {}

    bool onNext(const HapticAndInputInfoSorted& surface) override {
        const kelo::MimeType json{kelo::mimetypes::MimeTypeID::json};
        util::ByteBufferWriter bytes{1024};
        (void)kelo::writeDocument(bytes, json, kelo::BodyView::of(surface));
        return next_->onNext(kelo::Response{200, kelo::Payload::borrow(bytes.bytes(), json)});
    }
    void onError(const kelo::Response& response) override { next_->onError(response); }
    void onCompleted() override { next_->onCompleted(); }
    bool isOneShot() const override { return next_->isOneShot(); }

private:
    std::unique_ptr<kelo::IResponseHandler<kelo::Response>> next_;
};

}  // namespace

Query surfaceQuery(const std::string& display) {
    return {"retrieve", "/" + display, nullptr};
}

Stream openSurface(const Service& service, const std::string& display, const Inbox& inbox, std::size_t source, bool oneShot) {
    kelo::hmx::inputregions::Hmx_inputregionsClient manager{&service.api(), service.mimeType()};
    auto handler = std::make_unique<SurfaceHandler>(inbox.makeHandler(source, oneShot));
    return Stream{service.api(), manager.getInputRegionsForDisplay(std::move(handler), display)};
}

std::vector<Json> regionsOf(const kelo::Payload& payload) {
    const Json surface = decode(payload);
    const Json& regions = member(surface, "regionInfoSorted");
    if (!regions.is_array()) return {};
    return {regions.begin(), regions.end()};
}

}  // namespace hmx::client
