#include "kelo/response.h"

namespace kelo {

Response Response::createErrorResponse(std::uint16_t status, std::string_view reason) {
    return Response{status, Payload::copyOf(reason, MimeType{mimetypes::MimeTypeID::plainText})};
}

std::string_view Response::reason() const noexcept {
    return payload_.mimeType().id() == mimetypes::MimeTypeID::plainText ? payload_.text() : std::string_view{};
}

std::string Response::toString() const {
    std::string text = std::to_string(status_);
    if (payload_.mimeType().id() == mimetypes::MimeTypeID::plainText) {
        text += ' ';
        text += payload_.text();
    } else if (!payload_.empty()) {
        text += ' ';
        text += payload_.mimeType().empty() ? std::string_view{"untyped"} : payload_.mimeType().text();
        text += ", " + std::to_string(payload_.bytes().size()) + " bytes";
    }
    return text;
}

}  // namespace kelo
