// A request is in the table until it ends; only from there can it be answered, so each ends once, however provider and consumer
// interleave. A call that is being answered is held by who answers it, because the consumer may cancel it meanwhile.
#include "hmx/replica/local_api.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <utility>

#include "kelo/resource_handler.h"

namespace hmx::replica {

using kelo::Response;

// The requests that have not ended. Responders may outlive the API.
struct LocalApi::Calls {
    struct Call {
        std::unique_ptr<kelo::IResponseHandler<Response>> handler;
        bool isOneShot = false;
        kelo::IResourceHandler* provider = nullptr;
        void* handle = nullptr;  // the provider's
    };
    using Number = std::uintptr_t;

    // Null if the request is over.
    std::shared_ptr<Call> find(Number number) const {
        const auto found = open.find(number);
        return found == open.end() ? nullptr : found->second;
    }
    std::shared_ptr<Call> take(Number number) {
        auto call = find(number);
        open.erase(number);
        return call;
    }

    std::string path;
    std::map<Number, std::shared_ptr<Call>> open;
    Number last = 0;
};

class LocalApi::Responder final : public kelo::IResponder {
public:
    Responder(std::shared_ptr<Calls> calls, Calls::Number number) : calls_{std::move(calls)}, number_{number} {}
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;
    ~Responder() override {
        if (calls_->open.empty()) return;
        error(Response::createErrorResponse(503, calls_->path + ": no answer, outcome unknown"));
    }

    bool next(const Response& response) override {
        const auto call = calls_->find(number_);
        if (call == nullptr) return true;
        if (!call->handler->onNext(response) && !call->isOneShot) return calls_->find(number_) == nullptr;
        (void)calls_->take(number_);
        return true;
    }
    void error(const Response& response) override {
        if (const auto call = calls_->take(number_)) call->handler->onError(response);
    }
    void completed() override {
        if (const auto call = calls_->take(number_)) call->handler->onCompleted();
    }

private:
    std::shared_ptr<Calls> calls_;
    Calls::Number number_;
};

LocalApi::LocalApi(std::string path, const kelo::SimpleComposedKeloService& handlers)
    : path_{std::move(path)}, handlers_{handlers}, calls_{std::make_shared<Calls>()} {
    calls_->path = path_;
}

LocalApi::~LocalApi() {
    while (!calls_->open.empty()) cancel(reinterpret_cast<void*>(calls_->open.begin()->first));
}

void* LocalApi::request(const kelo::Request& request, std::unique_ptr<kelo::IResponseHandler<Response>>&& handler,
                        kelo::RequestLimits /*limits*/) {
    kelo::IResourceHandler* const provider = handlers_.find(request.path());
    if (provider == nullptr) {
        handler->onError(Response::createErrorResponse(404, path_ + " has no resource for the path '" + request.path() + "'"));
        return UNDEFINED_REQUEST_HANDLE;
    }
    const bool isOneShot = request.isOneShot() || handler->isOneShot();
    const Calls::Number number = ++calls_->last;
    const auto call = std::make_shared<Calls::Call>(Calls::Call{std::move(handler), isOneShot, provider});
    calls_->open.emplace(number, call);
    kelo::Request sent{request};
    sent.setOneShot(isOneShot);
    if (sent.clientId().empty()) sent.setClientId("unnamed");
    call->handle = provider->actionRequest(sent, std::make_unique<Responder>(calls_, number), sent.clientId());
    return reinterpret_cast<void*>(number);
}

void LocalApi::cancel(void* handle) {
    const auto call = calls_->take(reinterpret_cast<Calls::Number>(handle));
    if (call != nullptr && call->handle != UNDEFINED_REQUEST_HANDLE) call->provider->cancelRequest(call->handle);
}

bool LocalApi::hasStreams() const noexcept {
    return std::any_of(calls_->open.begin(), calls_->open.end(), [](const auto& each) { return !each.second->isOneShot; });
}

}  // namespace hmx::replica
