#include "runtime/document_answer.h"

#include "kelo/runtime/kelo_runtime.h"
#include "kelo/serializer/factory.h"
#include "kelo/std/error_storage.h"

namespace kelo::runtime {

void answerDocument(const Request& request, IResponder& responder,
                    const std::function<bool(serializer::IStructuredSerializer&)>& write) {
    constexpr std::size_t usual = 4096;
    const auto mimeType = getMimeType(request.getMimeTypeHeader());
    const auto writer = serializer::Factory::createSerializer(mimetypes::typename2id(mimeType));
    util::ByteBufferWriter buffer{usual};
    if (writer->start(buffer) || write(*writer) || writer->finish()) {
        responder.error(Response::createErrorResponse(500, std::ErrorStorage::takeReason()));
        return;
    }
    if (!responder.next(Response{200, Payload::createFromWriter(buffer, mimeType)})) responder.completed();
}

}  // namespace kelo::runtime
