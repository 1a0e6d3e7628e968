// The upstream service that a bridge is attached to, if any.
#pragma once

#include <memory>
#include <string>

#include "service_tracker.h"

namespace hmx {

// Owns the client stub, an implementation of `Client`; shares the API that it sends through with whoever else uses the service.
// Thread: the bridge's worker.
template <class Client>
class Attachment {
public:
    // Makes a stub of type `Stub` that sends through the API, in the mime type that the service prefers, in place of the one
    // before.
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
    // Only while there is one.
    Client& client() const noexcept { return *client_; }
    kelo::IKeloApi* api() const noexcept { return api_; }

private:
    std::shared_ptr<Client> client_;
    kelo::IKeloApi* api_ = nullptr;  // not owned
};

}  // namespace hmx
