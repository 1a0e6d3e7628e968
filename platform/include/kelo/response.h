// A response of the framework.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kelo/headers.h"
#include "kelo/payload.h"

namespace kelo {

// A value. Thread: one at a time.
class Response {
public:
    Response() = default;
    explicit Response(std::uint16_t status, Payload payload = {}) : status_{status}, payload_{std::move(payload)} {}

    // An error response: `reason` is its payload, as plain text.
    [[nodiscard]] static Response createErrorResponse(std::uint16_t status, std::string_view reason);

    std::uint16_t status() const noexcept { return status_; }
    const Payload& payload() const noexcept { return payload_; }
    std::string_view getMimeTypeText() const noexcept { return payload_.mimeType().text(); }
    // The text of an error response; "" if the payload is not plain text.
    std::string_view reason() const noexcept;
    const std::string& clientId() const noexcept { return clientId_; }
    const HeaderMap& headers() const noexcept { return headers_; }
    HeaderMap& headers() noexcept { return headers_; }

    void setStatus(std::uint16_t status) noexcept { status_ = status; }
    void setPayload(Payload payload) { payload_ = std::move(payload); }
    void rebindPayload(std::span<const std::uint8_t> bytes) noexcept { payload_.rebind(bytes); }
    void setClientId(std::string_view clientId) { clientId_ = clientId; }

    // "404 <reason>" for plain text, otherwise "200 <mime type>, <n> bytes".
    std::string toString() const;

private:
    std::uint16_t status_ = 0;
    Payload payload_;
    std::string clientId_;
    HeaderMap headers_;
};

}  // namespace kelo
