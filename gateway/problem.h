// Errors as HTTP clients get them: problem documents (RFC 9457).
#pragma once

#include <string>
#include <string_view>

#include "http_server.h"
#include "refusal.h"

namespace hmxgateway {

inline constexpr std::string_view problemType{"application/problem+json"};

// The name of a status, "Not Found". Thread: any, as all here.
[[nodiscard]] std::string_view titleOf(int status) noexcept;

// `sent`: "no" or "unknown" where a request may have been lost, else "".
[[nodiscard]] std::string problemDocument(int status, std::string_view detail, std::string_view sent = {});

// Thread: the gateway's. With Retry-After where asking again later may help.
[[nodiscard]] Answer problem(int status, std::string_view detail, std::string_view sent = {});
// `detail`: beyond the refusal's own reason, or "".
[[nodiscard]] Answer problem(Refusal refusal, std::string_view detail = {});

}  // namespace hmxgateway
