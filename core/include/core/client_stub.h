// The common part of all upstream client stubs: makes requests, sends them, decodes the answers.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "core/documents.h"
#include "core/response_handlers.h"
#include "kelo/kelo_api.h"

namespace kelo {

// One operation of an upstream service. Refers to literals. Thread: any (a value).
struct ClientOperation {
    std::string_view command;
    std::string_view pattern;         // of the path; each "*" stands for one argument
    const char* resultType = "none";  // as decoding errors call it
    bool hasDeadline = true;          // false: wait for the answer as long as the service exists
};

// Reads the payload of an answer of the service `servicePath` into `result`. True on failure, with the error in the store:
// unknownMimeType and the mime type's text, or cannotDeserialize and "<type name>: <reason>", in both cases followed by the
// service and the operation. The error is also logged, at a limited rate. Thread: any.
[[nodiscard]] bool decodeResponse(const Response& response, ResultView result, const ClientOperation& operation,
                                  std::string_view servicePath);

// A value, except for the API, which it does not own and which must outlive it. Thread: any.
class ClientStub {
public:
    // `servicePath`: where the service is published; a literal. `mimeType`: for the bodies that are sent and the answers that are
    // wanted.
    ClientStub(IKeloApi* api, std::string_view servicePath, std::string_view mimeType);

    // Sends the request; the arguments, percent-encoded, replace the stars. Returns the handle for IKeloApi::cancel. A handler of
    // std::nullptr_t gets a null for every answer, whatever it contains. Any other handler gets the decoded answer, or, if it
    // cannot be decoded, an error with the status of the framework error, normally 500. Error answers are passed on unchanged.
    template <class Result>
    void* request(const ClientOperation& operation, std::unique_ptr<IResponseHandler<Result>>&& handler,
                  std::initializer_list<std::string_view> arguments) const {
        return send(operation, decoding(operation, std::move(handler)), arguments, {});
    }
    // The same with a body. If the body cannot be written, the handler gets 400 with the reason before the call returns
    // UNDEFINED_REQUEST_HANDLE, and nothing is sent.
    template <class Result, class Body>
    void* request(const ClientOperation& operation, std::unique_ptr<IResponseHandler<Result>>&& handler,
                  std::initializer_list<std::string_view> arguments, const Body& body) const {
        return send(operation, decoding(operation, std::move(handler)), arguments, BodyView::of(body));
    }

private:
    template <class Result>
    std::unique_ptr<IResponseHandler<Response>> decoding(const ClientOperation& operation,
                                                         std::unique_ptr<IResponseHandler<Result>>&& handler) const {
        if constexpr (std::is_null_pointer_v<Result>) {
            return responsehandlers::mapped<Response>(std::move(handler),
                                                      [](const Response&) { return kelo::optional<Result>{nullptr}; });
        } else {
            return responsehandlers::mapped<Response>(
                std::move(handler), [operation, servicePath = servicePath_](const Response& response) {
                    kelo::optional<Result> result{std::experimental::in_place};
                    if (decodeResponse(response, ResultView::of(*result), operation, servicePath)) result = kelo::nullopt;
                    return result;
                });
        }
    }
    void* send(const ClientOperation& operation, std::unique_ptr<IResponseHandler<Response>> handler,
               std::initializer_list<std::string_view> arguments, BodyView body) const;

    IKeloApi* api_;
    std::string_view servicePath_;
    MimeType mimeType_;
    Request::Options options_;  // empty; shared by all requests
};

}  // namespace kelo
