// A request of the framework, and what its answer needs to know of it.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "kelo/headers.h"
#include "kelo/payload.h"
#include "util/config/value.h"

namespace kelo {

// A value. The payload holds the parameters of a retrieve or delete, or the body of an update or insert. Thread: one at a time.
class Request {
public:
    using Options = std::shared_ptr<util::config::Dictionary>;

    Request() = default;
    // `options`: hints for the runtime, which are not sent; may be null. Currently there is one: "deadline", in milliseconds.
    Request(std::string_view command, std::string_view path, Payload payload = {}, Options options = {})
        : command_{command}, path_{path}, payload_{std::move(payload)}, options_{std::move(options)} {}

    const std::string& command() const noexcept { return command_; }
    const std::string& path() const noexcept { return path_; }
    const std::string& servicePath() const noexcept { return servicePath_; }
    const std::string& clientId() const noexcept { return clientId_; }
    const std::string& authToken() const noexcept { return authToken_; }
    const Payload& payload() const noexcept { return payload_; }
    const Options& options() const noexcept { return options_; }
    const HeaderMap& headers() const noexcept { return headers_; }
    HeaderMap& headers() noexcept { return headers_; }

    // The mime type of the payload. The answer is wanted in it too, unless `accept` says otherwise.
    void setMimeType(std::string_view mimeType) { payload_.setMimeType(MimeType{mimeType}); }
    std::string_view contentType() const noexcept { return payload_.mimeType().text(); }
    // A comma-separated list in order of preference.
    void setAccept(std::string_view accept) { accept_ = accept; }
    const std::string& accept() const noexcept { return accept_; }
    // The wanted type of the answer: the accept header, else the request's own mime type. "" if there is neither.
    std::string_view getMimeTypeHeader() const noexcept { return accept_.empty() ? contentType() : std::string_view{accept_}; }

    void setCommand(std::string_view command) { command_ = command; }
    void setPath(std::string_view path) { path_ = path; }
    void setServicePath(std::string_view servicePath) { servicePath_ = servicePath; }
    void setClientId(std::string_view clientId) { clientId_ = clientId; }
    void setAuthToken(std::string_view token) { authToken_ = token; }
    void setPayload(Payload payload) { payload_ = std::move(payload); }
    void rebindPayload(std::span<const std::uint8_t> bytes) noexcept { payload_.rebind(bytes); }
    void setOptions(const Options& options) {
        if (options_ != options) options_ = options;
    }

    // The client wants one value: the first `next` ends the request.
    bool isOneShot() const noexcept { return oneShot_; }
    void setOneShot(bool oneShot) noexcept { oneShot_ = oneShot; }

private:
    std::string command_;
    std::string path_;
    std::string servicePath_;
    std::string clientId_;
    std::string authToken_;
    std::string accept_;
    Payload payload_;
    HeaderMap headers_;
    Options options_;
    bool oneShot_ = false;
};

// What a response handler keeps of its request. Thread: any (a value).
class RequestInfo {
public:
    explicit RequestInfo(const Request& request) : clientId_{request.clientId()}, oneShot_{request.isOneShot()} {}

    const std::string& clientId() const noexcept { return clientId_; }
    bool isOneShot() const noexcept { return oneShot_; }

private:
    std::string clientId_;
    bool oneShot_;
};

}  // namespace kelo
