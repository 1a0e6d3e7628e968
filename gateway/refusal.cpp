#include "refusal.h"

#include <array>
#include <cstddef>

namespace hmxgateway {
namespace {

constexpr std::array<RefusalForm, static_cast<std::size_t>(Refusal::count)> forms{{
    {Refusal::target, "target", 400, "the path or the query is not well-formed, or too long"},
    {Refusal::host, "host", 403, "this server does not go by the name in the Host header; --host NAME adds one"},
    {Refusal::origin, "origin", 403, "pages of other origins may not use this server; --allow-origin ORIGIN admits one"},
    {Refusal::token, "token", 401, "a token is needed, as \"Authorization: Bearer TOKEN\" or as the password of any user"},
    {Refusal::user, "user", 403, "this socket is for the user who runs the gateway"},
    {Refusal::changes, "changes", 403, "this gateway only reads; --allow-changes lets it change"},
    {Refusal::path, "path", 404, "there is nothing at this path; /openapi.json lists the paths"},
    {Refusal::method, "method", 405, "this path does not take this method"},
    {Refusal::accept, "accept", 406,
     "none of the accepted types can be had: JSON, msgpack, CBOR, or an event stream of a retrieve"},
    {Refusal::contentType, "content_type", 415, "the body has to be JSON, msgpack or CBOR, and its Content-Type has to say so"},
    {Refusal::bodySize, "body_size", 413, "the body is larger than a request to the bridge can be"},
    {Refusal::bodies, "bodies", 503, "too many bodies are being received, request not sent"},
    {Refusal::parameters, "parameters", 400, "a parameter cannot be understood"},
    {Refusal::streams, "streams", 503, "too many event streams are open"},
    {Refusal::topics, "topics", 503, "too many different things are watched"},
    {Refusal::requests, "requests", 503, "too many requests wait for the bridge, request not sent"},
    {Refusal::syntax, "syntax", 400, "the request is not HTTP, or its headers are too large"},
    {Refusal::slowHeaders, "slow_headers", 408, "the headers of the request did not come in time"},
    {Refusal::slowBody, "slow_body", 408, "the body of the request did not come in time"},
    {Refusal::slowReader, "slow_reader", 0, "the answer was left unread"},
    {Refusal::connections, "connections", 503, "too many connections are open"},
    {Refusal::recordings, "recordings", 503, "too many recordings are being sent"},
    {Refusal::range, "range", 416, "the recording has no such bytes"},
}};

constexpr bool isInOrder() {
    for (std::size_t i = 0; i < forms.size(); ++i) {
        if (forms[i].refusal != static_cast<Refusal>(i)) return false;
    }
    return true;
}
static_assert(isInOrder());

}  // namespace

const RefusalForm& formOf(Refusal refusal) noexcept {
    return forms[static_cast<std::size_t>(refusal)];
}

}  // namespace hmxgateway
