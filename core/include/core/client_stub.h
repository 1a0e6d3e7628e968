// What the stubs of all upstream services share: making requests, sending them, decoding the answers.
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
    std::string_view pattern;         // of the path; each "*" stands for an argument
    const char* resultType = "none";  // as decoding errors name it
    bool hasDeadline = true;          // false: its answer is waited for as long as the service lives
};

// Fills `result` from the payload of an answer of the service `servicePath`. True on failure, with the error in the store:
// unknownMimeType and the mime type's text, or cannotDeserialize and "<type name>: <reason>"; either is followed by the service
// and the operation, so that whoever reads it knows whose answer it was. The log has it too, a few times a second at most.
// Thread: any.
[[nodiscard]] bool decodeResponse(const Response& response, ResultView result, const ClientOperation& operation,
                                  std::string_view servicePath);

// A value but for the API, which it does not own and which outlives it. Thread: any.
class ClientStub {
public:
    // `servicePath`: where the service is published; a literal. `mimeType`: of the bodies sent, and of the answers asked for.
    ClientStub(IKeloApi* api, std::string_view servicePath, std::string_view mimeType);

    // Sends the request; the arguments, percent-encoded, take the places of the stars. The result is its handle for
    // IKeloApi::cancel. A handler of std::nullptr_t gets a null for every answer, whatever it holds; any other gets the answer
    // decoded, and an error with its status from the framework error, normally 500, if it does not decode. Error answers reach
    // the handler as they are.
    template <class Result>
    void* request(const ClientOperation& operation, std::unique_ptr<IResponseHandler<Result>>&& handler,
                  std::initializer_list<std::string_view> arguments) const {
        return send(operation, decoding(operation, std::move(handler)), arguments, {});
    }
    // The same with a body. One that cannot be written gives the handler 400 with the reason, at once, and
    // UNDEFINED_REQUEST_HANDLE; nothing is sent.
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
