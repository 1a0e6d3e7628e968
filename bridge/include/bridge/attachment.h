// The upstream service that a bridge is attached to, if any.
#pragma once

#include <memory>
#include <string>

#include "service_tracker.h"

namespace hmx {

// Owns the client stub, an implementation of `Client`. The API is not owned; other users of the service share it. Thread: the
// bridge's worker.
template <class Client>
class Attachment {
public:
    // Replaces the stub by a new one of type `Stub` that sends through this API, in the mime type that the service prefers.
    template <class Stub>
    void set(const ServiceApi& service) {
        client_ = std::make_shared<Stub>(service.api, std::string{kelo::runtime::getMimeType(service.info)});
        api_ = service.api;
    }
    void reset() noexcept {
        client_ = nullptr;
        api_ = nullptr;
    }

    explicit operator bool() const noexcept { return client_ != nullptr; }
    // Must not be called while there is none.
    Client& client() const noexcept { return *client_; }
    kelo::IKeloApi* api() const noexcept { return api_; }

private:
    std::shared_ptr<Client> client_;
    kelo::IKeloApi* api_ = nullptr;  // not owned
};

}  // namespace hmx
