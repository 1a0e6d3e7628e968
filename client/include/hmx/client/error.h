// What failed, and what is known of it.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace hmx::client {

// What became of the request. Only after `unknown` may something have happened that nobody has seen.
enum class Sent : std::uint8_t {
    no,       // it did not leave, or its receiver did not pass it on: nothing has happened
    unknown,  // it left, and no answer came back
    answered  // the service has answered
};

// The only class of errors that this library throws and hands out, those of the standard library aside.
// Thread: any (a value).
class Error : public std::runtime_error {
public:
    enum class Kind : std::uint8_t {
        refused,       // the service answered with an error: `status` and `reason`
        ended,         // the service ended the request without an answer
        late,          // no answer in time
        unreadable,    // the answer is no document of its type
        invalid,       // nothing that could be asked for; nothing was sent
        ambiguous,     // the name fits several elements: `names`
        noElement,     // there is no element of that name or id; `names`: those that come near
        nameless,      // the service lists the element but cannot be asked for it: its upstream service has no name for it
        noService,     // no service of that path; `names`: those that come near
        serviceDead,   // its process has ended and left its socket
        serviceHung,   // its process exists, but does not answer
        serviceFull,   // it accepts no more clients
        foreign,       // it is run by another user: `names`
        noDomain,      // the domain's directory is not there
        closedDomain,  // the directory cannot be read; `names`: the user whose it is, if another
        notEntered,    // the directory cannot be used
        system         // the operating system refused something
    };

    // What else may be known. `what` is "<tried>: <how it ended>".
    struct Details {
        std::string tried{};    // "retrieve /displays at /hmx"
        std::string service{};  // "/hmx"
        std::string reason{};   // the service's own words
        std::uint16_t status = 0;
        Sent sent = Sent::no;
        std::string hint{};
        std::string_view resource{};
        std::vector<std::string> names{};
    };
    Error(Kind kind, const std::string& what, Details details)
        : std::runtime_error{what}, kind_{kind}, details_{std::move(details)} {}
    Error(Kind kind, const std::string& what, std::string hint = {}) : Error{kind, what, Details{.hint = std::move(hint)}} {}

    Kind kind() const noexcept { return kind_; }
    Sent sent() const noexcept { return details_.sent; }
    // The status of the answer; 0 when there was none.
    std::uint16_t status() const noexcept { return details_.status; }
    // What was tried: command, path and service; "" where nothing was.
    const std::string& tried() const noexcept { return details_.tried; }
    // The path of the service that it is about; "" where it is about none.
    const std::string& service() const noexcept { return details_.service; }
    // The service's reason as it came; "" when it gave none.
    const std::string& reason() const noexcept { return details_.reason; }
    // What would help, in words for people; "" where nothing is known.
    const std::string& hint() const noexcept { return details_.hint; }
    // The name of the resource that it is about, "displays"; static storage; "" where it is about none.
    std::string_view resource() const noexcept { return details_.resource; }
    // See `Kind`.
    const std::vector<std::string>& names() const noexcept { return details_.names; }

    // Whether it ends by itself when the service or its upstream returns.
    bool isPassing() const noexcept;
    // Whether the element, or whatever else was asked for, is not there.
    bool isNotFound() const noexcept { return kind_ == Kind::noElement || kind_ == Kind::nameless || status() == 404; }

private:
    Kind kind_;
    Details details_;
};

}  // namespace hmx::client
