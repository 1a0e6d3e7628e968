#include "answers.h"

#include "kelo/runtime/kelo_runtime.h"
#include "kelo/std/error_storage.h"

namespace hmxsim {

using kelo::Response;

Response done() {
    return Response{204};
}

Response refusal(std::uint16_t status, std::string_view reason) {
    return Response::createErrorResponse(status, reason);
}

Response valueFor(const kelo::Request& request, kelo::BodyView value) {
    const kelo::MimeType mimeType{kelo::runtime::getMimeType(request.getMimeTypeHeader())};
    util::ByteBufferWriter buffer{1024};
    if (!kelo::writeDocument(buffer, mimeType, value)) return Response{200, kelo::Payload::copyOf(buffer.bytes(), mimeType)};
    return refusal(500, std::ErrorStorage::takeReason());
}

bool bodyFails(const kelo::Request& request, kelo::ResultView body, const char* typeName, Response& answer) {
    const kelo::Payload& payload = request.payload();
    if (!kelo::readDocument(payload.bytes(), payload.mimeType(), body)) return false;
    answer = refusal(400, std::string{typeName} + ": " + std::ErrorStorage::takeReason());
    return true;
}

}  // namespace hmxsim
