// The handlers that send a bridge's answers to the client of a resource.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "core/documents.h"
#include "kelo/record.h"
#include "kelo/request.h"
#include "kelo/resource_handler.h"
#include "kelo/response_handler.h"
#include "util/block_pool.h"

namespace kelo::hmx {

// The common part of the handlers of all result types. Thread: any, one call at a time.
class ResponseHandlerBase {
protected:
    // `mimeType`: for the answers; must have a structured encoding.
    ResponseHandlerBase(std::unique_ptr<IResponder> responder, MimeType mimeType, const Request& request)
        : responder_{std::move(responder)}, mimeType_{std::move(mimeType)}, requestInfo_{request} {}

    // Sends 200 with the value and returns the responder's result. A value that cannot be written is not sent: the error store
    // gets cannotSerialize and "<operation>: serialization error", and the result is true.
    bool sendValue(const char* operation, BodyView value);
    // Sends 204 and returns the responder's result.
    bool sendNothing();
    void sendError(const Response& response);
    void sendCompleted();
    bool wantsOneValue() const noexcept { return requestInfo_.isOneShot(); }
    Account* accountOfClient() const noexcept { return responder_->account(); }

private:
    std::unique_ptr<IResponder> responder_;
    MimeType mimeType_;
    RequestInfo requestInfo_;
};

// The handler of one operation with the result type T. If it is destroyed without a terminal event, the responder answers "no
// answer". Thread: any, one call at a time.
template <class T, record::Key Operation>
class ResponseHandler final : public IResponseHandler<T>, public util::Pooled, private ResponseHandlerBase {
public:
    using Result = T;
    static constexpr const char* operation = Operation.text;

    ResponseHandler(std::unique_ptr<IResponder> responder, MimeType mimeType, const Request& request)
        : ResponseHandlerBase{std::move(responder), std::move(mimeType), request} {}

    bool onNext(const T& value) override {
        if constexpr (std::is_null_pointer_v<T>) {
            return sendNothing();
        } else {
            return sendValue(operation, BodyView::of(value));
        }
    }
    void onError(const Response& response) override { sendError(response); }
    void onCompleted() override { sendCompleted(); }
    bool isOneShot() const override { return wantsOneValue(); }
    Account* account() const override { return accountOfClient(); }
};

}  // namespace kelo::hmx
