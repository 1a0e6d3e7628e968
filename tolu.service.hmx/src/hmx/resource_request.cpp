#include "hmx/resource_request.h"

#include "hmx/route.h"
#include "kelo/path.h"
#include "kelo/runtime/kelo_runtime.h"
#include "kelo/tolu/parameters.h"
#include "util/text.h"

namespace kelo::hmx {

bool ResourceRequest::enter(const Route& route) {
    route_ = &route;
    return tag_.empty() && refuseArgument("empty tag");
}

bool ResourceRequest::read(std::UUID& id) {
    const int index = Path::indexIntoPathFromPattern(route_->path, 0);
    if (index < 0) return refuseArgument("no element in the path");
    const Path path{request_.path()};
    if (path.part(index, id)) return false;
    return refuseArgument("'" + util::printable(path.rawPart(index)) + "' is not a UUID");
}

bool ResourceRequest::read(kelo::optional<toluglobals::ToluParams>& params) {
    if (request_.payload().empty()) return false;
    params.emplace();
    tolu::RelevantParams relevant{*params, route_->element == nullptr ? nullptr : &route_->element(), !route_->isForElement};
    return readPayload(ResultView::of(relevant));
}

bool ResourceRequest::read(kelo::optional<std::vector<std::string>>& fields) {
    if (request_.payload().empty()) return false;
    toluglobals::ToluParams params;
    if (readPayload(ResultView::of(params))) return true;
    // Unlike a record, a delete must not have unknown keys: the client would delete more than it meant to.
    for (const auto& [key, value] : params.values.entries()) {
        if (key != "fields") return refuseArgument("another key than \"fields\"");
    }
    fields = std::move(params.fields);
    return false;
}

bool ResourceRequest::readPayload(ResultView result) {
    const Payload& payload = request_.payload();
    if (payload.empty()) return refuseArgument("empty body");
    if (!mimetypes::isStructured(payload.mimeType().id())) {
        return refuseArgument("cannot read mime type '" + util::printable(payload.mimeType().text()) + "'");
    }
    if (!readDocument(payload.bytes(), payload.mimeType(), result)) return false;
    const std::string reason = std::ErrorStorage::takeReason();
    return refuseArgument(reason);
}

bool ResourceRequest::refuseArgument(std::string_view why) {
    std::string reason{serviceName_};
    reason.append("::").append(route_->operation).append(": ").append(why);
    return refuse(errors::badRequest, reason);
}

bool ResourceRequest::refuse(errors::Code code, std::string_view reason) {
    std::ErrorOutput{errors::Error, code, reason};
    wasRefused_ = true;
    responder_->error(Response::createErrorResponse(errors::error2StatusCode(code), std::ErrorStorage::reason()));
    return true;
}

MimeType ResourceRequest::answerMimeType() const {
    const MimeType& asSent = request_.payload().mimeType();
    if (request_.accept().empty() && mimetypes::isStructured(asSent.id())) return MimeType{asSent.id()};
    return MimeType{runtime::getMimeType(request_.getMimeTypeHeader())};
}

}  // namespace kelo::hmx
