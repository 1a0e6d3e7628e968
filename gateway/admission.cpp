// What each check is against:
//  - Host: a foreign page whose name is made to lead to this machine. Its requests are of its own origin for the browser, so it
//    could read the answers; but they carry its name.
//  - Origin: a foreign page that sends requests across origins. A page of ours has the Host header's own origin. Sec-Fetch-Site
//    tells of those that come without an Origin, such as images; following a link to our page stays possible.
//  - Token: whoever reaches an address that is not the loopback. Browsers are asked for it as a password, and then send it with
//    everything that the page asks for, event streams too.

#include "admission.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "ascii.h"

namespace hmxgateway {
namespace {

constexpr std::array<std::string_view, 3> loopbackNames{"localhost", "127.0.0.1", "[::1]"};

// Without a port, which may be that of a tunnel.
std::string_view nameOf(std::string_view host) {
    const std::size_t end = host.starts_with('[') ? host.find(']') : host.find(':');
    if (end == std::string_view::npos) return host;
    const std::size_t length = host.starts_with('[') ? end + 1 : end;
    const std::string_view port = host.substr(length);
    const bool isPort =
        port.empty() || (port.front() == ':' && port.find_first_not_of("0123456789", 1) == std::string_view::npos);
    return isPort ? host.substr(0, length) : std::string_view{};
}

int valueOf(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

// "" for what is no base64.
std::string fromBase64(std::string_view text) {
    while (text.ends_with('=')) text.remove_suffix(1);
    std::string bytes;
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char c : text) {
        const int value = valueOf(c);
        if (value < 0) return {};
        bits = (bits << 6U) | static_cast<std::uint32_t>(value);
        count += 6;
        if (count >= 8) bytes += static_cast<char>((bits >> (count -= 8)) & 0xFFU);
    }
    return bytes;
}

// The credentials behind a scheme's name; nothing for another scheme.
std::optional<std::string_view> behind(std::string_view scheme, std::string_view authorization) {
    if (authorization.size() <= scheme.size() || authorization[scheme.size()] != ' ') return {};
    if (!equalInAnyCase(authorization.substr(0, scheme.size()), scheme)) return {};
    authorization.remove_prefix(scheme.size());
    authorization.remove_prefix(std::min(authorization.find_first_not_of(' '), authorization.size()));
    return authorization;
}

}  // namespace

bool equalInConstantTime(std::string_view a, std::string_view b) noexcept {
    unsigned differ = a.size() == b.size() ? 0 : 1;
    // As many steps as the one that was sent is long.
    for (std::size_t i = 0; i < a.size(); ++i) {
        differ |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b.empty() ? 0 : b[i % b.size()]);
    }
    return differ == 0;
}

bool Admission::isOurName(std::string_view host) const {
    if (rules_.anyHost) return true;
    const std::string name = lowered(nameOf(host));
    return std::find(loopbackNames.begin(), loopbackNames.end(), name) != loopbackNames.end() ||
           std::find(rules_.hosts.begin(), rules_.hosts.end(), name) != rules_.hosts.end();
}

bool Admission::isAllowedOrigin(std::string_view origin) const {
    return std::find(rules_.origins.begin(), rules_.origins.end(), origin) != rules_.origins.end();
}

bool Admission::hasToken(std::string_view authorization) const {
    if (const auto bearer = behind("bearer", authorization)) return equalInConstantTime(*bearer, rules_.token);
    const auto basic = behind("basic", authorization);
    if (!basic) return false;
    const std::string pair = fromBase64(*basic);
    const std::size_t colon = pair.find(':');
    return colon != std::string::npos && equalInConstantTime(std::string_view{pair}.substr(colon + 1), rules_.token);
}

std::optional<Refusal> Admission::refusal(const Credentials& asked, bool isPreflight) const {
    if (asked.isForeignUser) return Refusal::user;
    if (!asked.hasOneHost || !isOurName(asked.host)) return Refusal::host;
    if (!asked.origin.empty()) {
        const bool isOurs = equalInAnyCase(asked.origin, "http://" + std::string{asked.host});
        if (!isOurs && !isAllowedOrigin(asked.origin)) return Refusal::origin;
    } else if ((asked.fetchSite == "cross-site" || asked.fetchSite == "same-site") && asked.fetchMode != "navigate") {
        return Refusal::origin;
    }
    if (!rules_.token.empty() && !isPreflight && !hasToken(asked.authorization)) return Refusal::token;
    return {};
}

}  // namespace hmxgateway
