// Why the gateway itself says no: each reason with its status, declared once, and counted.
#pragma once

#include <cstdint>
#include <string_view>

namespace hmxgateway {

enum class Refusal : std::uint8_t {
    target,
    host,
    origin,
    token,
    user,
    changes,
    path,
    method,
    accept,
    contentType,
    bodySize,
    bodies,
    parameters,
    streams,
    topics,
    requests,
    syntax,
    slowHeaders,
    slowBody,
    slowReader,
    connections,
    recordings,
    range,
    count
};

// Thread: any (a constant).
struct RefusalForm {
    Refusal refusal;
    std::string_view name;    // in the metrics
    int status;               // 0: the connection is closed without an answer
    std::string_view reason;  // what the client is told
};

[[nodiscard]] const RefusalForm& formOf(Refusal refusal) noexcept;

}  // namespace hmxgateway
