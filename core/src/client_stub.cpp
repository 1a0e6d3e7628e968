// An upstream operation is one request and its answers. The request is made on the caller's thread and sent from it; its answers
// are decoded on the thread that reads the service's connection, inside the mapping handler that owns the caller's, so that
// nothing is kept here between the two and a stub can be replaced while requests are under way.
#include "core/client_stub.h"

#include "kelo/errors.h"
#include "kelo/headers.h"
#include "kelo/path.h"
#include "kelo/std/error_storage.h"
#include "kelo/tracing.h"
#include "util/byte_buffer.h"

namespace kelo {

namespace {

constexpr std::size_t bodyCapacity = 1024;

bool failed(errors::Code code, std::string_view text) {
    std::ErrorOutput{errors::Error, code, text};
    return true;
}

}  // namespace

bool decodeResponse(const Response& response, ResultView result, const char* typeName) {
    const Payload& payload = response.payload();
    if (payload.empty() && payload.mimeType().empty()) {
        return failed(errors::cannotDeserialize, std::string{typeName} + ": the answer is empty");
    }
    if (!readDocument(payload.bytes(), payload.mimeType(), result)) return false;
    if (std::ErrorStorage::current().code == errors::unknownMimeType) return true;
    const std::string reason = std::ErrorStorage::reason();
    std::ErrorStorage::ack();
    return failed(errors::cannotDeserialize, std::string{typeName} + ": " + reason);
}

ClientStub::ClientStub(IKeloApi* api, std::string_view servicePath, std::string_view mimeType)
    : api_{api}, servicePath_{servicePath}, mimeType_{mimeType}, options_{std::make_shared<util::config::Dictionary>()} {}

void* ClientStub::send(const ClientOperation& operation, std::unique_ptr<IResponseHandler<Response>> handler,
                       std::initializer_list<std::string_view> arguments, BodyView body) const {
    util::ByteBufferWriter buffer{body.write != nullptr ? bodyCapacity : 0};
    if (body.write != nullptr && writeDocument(buffer, mimeType_, body)) {
        handler->onError(Response::createErrorResponse(400, std::ErrorStorage::reason()));
        std::ErrorStorage::ack();
        return IKeloApi::UNDEFINED_REQUEST_HANDLE;
    }
    Request request{operation.command, Path::replacePattern(operation.pattern, arguments),
                    Payload::borrow(buffer.bytes(), mimeType_), options_};
    headers::appendTracingInfo(request, servicePath_, tracing::getTraceClientId());
    headers::appendAuthInfo(request);
    return api_->request(request, std::move(handler));
}

}  // namespace kelo
