// Who may ask: decided from the headers of a request alone, before anything is done for it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refusal.h"

namespace hmxgateway {

// What admission looks at. Thread: any (a value).
struct Credentials {
    std::string_view host{};  // the Host header, or what an absolute target names
    bool hasOneHost = true;
    std::string_view origin{};         // "" when absent
    std::string_view fetchSite{};      // Sec-Fetch-Site, likewise
    std::string_view fetchMode{};      // Sec-Fetch-Mode
    std::string_view authorization{};  // likewise
    bool isForeignUser = false;        // of a Unix socket's peer
};

// Thread: the gateway's.
class Admission {
public:
    struct Rules {
        std::vector<std::string> hosts{};    // names, besides those of the loopback, that a Host header may have
        bool anyHost = false;                // on a Unix socket, to which no browser is lured
        std::vector<std::string> origins{};  // foreign ones that are admitted, "https://panel.example"
        std::string token{};                 // "" for none
    };

    explicit Admission(Rules rules) : rules_{std::move(rules)} {}

    // Why the request is refused; nothing when it is not. A preflight, by which a browser asks whether it may ask, has no token.
    [[nodiscard]] std::optional<Refusal> refusal(const Credentials& asked, bool isPreflight = false) const;
    // Whether answers may be shown to this origin, which is not ours.
    [[nodiscard]] bool isAllowedOrigin(std::string_view origin) const;

private:
    [[nodiscard]] bool isOurName(std::string_view host) const;
    [[nodiscard]] bool hasToken(std::string_view authorization) const;

    Rules rules_;
};

// Whether the two are equal, in a time that does not depend on where they differ. Thread: any.
[[nodiscard]] bool equalInConstantTime(std::string_view a, std::string_view b) noexcept;

}  // namespace hmxgateway
