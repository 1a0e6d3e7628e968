// One request for a resource while it is dispatched: reads its arguments, and refuses it if they cannot be read.
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

// The readers return true if the request has been refused: the client then has its answer, and the error store has the reason.
// Thread: the one that dispatches.
class ResourceRequest {
public:
    ResourceRequest(const Request& request, std::unique_ptr<IResponder> responder, const std::string& tag,
                    std::string_view serviceName)
        : request_{request}, responder_{std::move(responder)}, tag_{tag}, serviceName_{serviceName} {}

    // Sets the route whose arguments are read; reasons name its operation. The tag must not be empty.
    bool enter(const Route& route);

    // Reads the id from the path.
    bool read(std::UUID& id);
    // Reads the parameters; absent if there is no payload.
    bool read(kelo::optional<toluglobals::ToluParams>& params);
    // Reads the list under "fields", the only key that the payload of a delete may have; absent if there is no payload or no
    // list.
    bool read(kelo::optional<std::vector<std::string>>& fields);
    // Reads the body, which is required.
    template <record::Record Body>
    bool read(Body& body) {
        return readPayload(ResultView::of(body));
    }

    // Answers with the status of the error and records the error. Always true.
    bool refuse(errors::Code code, std::string_view reason);
    bool wasRefused() const noexcept { return wasRefused_; }

    // Creates the handler for the answers; it takes over the responder.
    template <class Handler>
    std::unique_ptr<IResponseHandler<typename Handler::Result>> makeHandler() {
        return std::make_unique<Handler>(std::move(responder_), answerMimeType(), request_);
    }

private:
    bool refuseArgument(std::string_view why);
    bool readPayload(ResultView result);
    // The type that the client accepts, if it can be written, otherwise a default.
    MimeType answerMimeType() const;

    const Request& request_;
    std::unique_ptr<IResponder> responder_;
    const std::string& tag_;
    std::string_view serviceName_;
    const Route* route_ = nullptr;
    bool wasRefused_ = false;
};

}  // namespace kelo::hmx
