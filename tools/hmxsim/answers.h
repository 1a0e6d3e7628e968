// Making answers to requests, and reading their bodies.
#pragma once

#include <string>
#include <string_view>

#include "core/documents.h"
#include "kelo/request.h"
#include "kelo/response.h"

namespace hmxsim {

// A success without a value.
kelo::Response done();
// An error, with the reason in words.
kelo::Response refusal(std::uint16_t status, std::string_view reason);
inline kelo::Response notFound(std::string_view reason) {
    return refusal(404, reason);
}
inline kelo::Response noDisplay(const std::string& id) {
    return notFound("no such display: " + id);
}
inline bool isError(const kelo::Response& response) noexcept {
    return response.status() >= 400;
}

// The value in the mime type that the client wants; 500 with the reason if it cannot be written.
kelo::Response valueFor(const kelo::Request& request, kelo::BodyView value);
template <class T>
kelo::Response valueFor(const kelo::Request& request, const T& value) {
    return valueFor(request, kelo::BodyView::of(value));
}

// Reads the request's body; true on failure, with the answer that says why in `answer`.
bool bodyFails(const kelo::Request& request, kelo::ResultView body, const char* typeName, kelo::Response& answer);
template <class T>
bool bodyFails(const kelo::Request& request, T& body, const char* typeName, kelo::Response& answer) {
    return bodyFails(request, kelo::ResultView::of(body), typeName, answer);
}

}  // namespace hmxsim
