// The handlers that carry a bridge's answer back to the client of a resource.
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

// What the handlers of all types of answer share. Thread: any, one call at a time.
class ResponseHandlerBase {
protected:
    // `mimeType`: of the answers; one that has a structured encoding.
    ResponseHandlerBase(std::unique_ptr<IResponder> responder, MimeType mimeType, const Request& request)
        : responder_{std::move(responder)}, mimeType_{std::move(mimeType)}, requestInfo_{request} {}

    // 200 with the value; the result is the responder's. A value that cannot be written is not sent: the error store gets
    // cannotSerialize and "<operation>: serialization error", and the result is true.
    bool sendValue(const char* operation, BodyView value);
    // 204; the result is the responder's.
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

// The handler of one operation, whose result is a T. Destroyed without a terminal event, it leaves the client to the responder's
// "no answer". Thread: any, one call at a time.
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
