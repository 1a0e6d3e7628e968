// The consumer's side of a service in the same thread: no socket, no encoding beyond the documents themselves.
#pragma once

#include <memory>
#include <string>

#include "kelo/composed_service.h"
#include "kelo/kelo_api.h"

namespace hmx::replica {

// Requests have no deadline: who answers does so at once, or when something changes. A resource.
// Thread: that of the handlers, which answer on it.
class LocalApi final : public kelo::IKeloApi {
public:
    // `path`: the service's, for error texts. `handlers` outlives this.
    LocalApi(std::string path, const kelo::SimpleComposedKeloService& handlers);
    ~LocalApi() override;
    LocalApi(const LocalApi&) = delete;
    LocalApi& operator=(const LocalApi&) = delete;

    void* request(const kelo::Request& request, std::unique_ptr<kelo::IResponseHandler<kelo::Response>>&& handler,
                  kelo::RequestLimits limits = {}) override;
    void cancel(void* handle) override;
    // Whether a request is open that wants more than one answer.
    bool hasStreams() const noexcept;

private:
    struct Calls;
    class Responder;

    std::string path_;
    const kelo::SimpleComposedKeloService& handlers_;
    std::shared_ptr<Calls> calls_;
};

}  // namespace hmx::replica
