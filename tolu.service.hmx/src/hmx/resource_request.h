// One request for a resource while it is being dispatched: its arguments, and the refusal when they do not read.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/documents.h"
#include "kelo/errors.h"
#include "kelo/optional.h"
#include "kelo/request.h"
#include "kelo/resource_handler.h"
#include "kelo/response_handler.h"
#include "kelo/std/uuid.h"
#include "kelo/toluglobals.h"

namespace kelo::hmx {

struct Route;

// The readers return true when the request has been refused: the client then has its answer, and the error store the reason.
// Thread: the one that dispatches.
class ResourceRequest {
public:
    ResourceRequest(const Request& request, std::unique_ptr<IResponder> responder, const std::string& tag,
                    std::string_view serviceName)
        : request_{request}, responder_{std::move(responder)}, tag_{tag}, serviceName_{serviceName} {}

    // Whose arguments are read next; reasons name its operation. The tag must not be empty.
    bool enter(const Route& route);

    // The id, from the path.
    bool read(std::UUID& id);
    // The parameters; absent when there is no payload.
    bool read(kelo::optional<toluglobals::ToluParams>& params);
    // The list under "fields", the only key that a delete's payload may have; absent when there is none.
    bool read(kelo::optional<std::vector<std::string>>& fields);
    // The body, which must be there.
    template <record::Record Body>
    bool read(Body& body) {
        return readPayload(ResultView::of(body));
    }

    // Answers with the status of the error and records it. True.
    bool refuse(errors::Code code, std::string_view reason);
    bool wasRefused() const noexcept { return wasRefused_; }

    // The handler for the answers, which takes the responder along.
    template <class Handler>
    std::unique_ptr<IResponseHandler<typename Handler::Result>> makeHandler() {
        return std::make_unique<Handler>(std::move(responder_), answerMimeType(), request_);
    }

private:
    bool refuseArgument(std::string_view why);
    bool readPayload(ResultView result);
    // What the client accepts, as far as it can be written.
    MimeType answerMimeType() const;

    const Request& request_;
    std::unique_ptr<IResponder> responder_;
    const std::string& tag_;
    std::string_view serviceName_;
    const Route* route_ = nullptr;
    bool wasRefused_ = false;
};

}  // namespace kelo::hmx
