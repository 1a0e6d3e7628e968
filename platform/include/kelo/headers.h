// Header keys, and helpers that set them.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelo {

class Request;
class Response;
class RequestInfo;

// Headers for which requests and responses have no member of their own. Few; in order of arrival; keys are unique. Thread: one at
// a time (a value).
class HeaderMap {
public:
    // Null if absent.
    const std::string* find(std::string_view key) const noexcept;
    void set(std::string_view key, std::string_view value);
    void clear() noexcept { entries_.clear(); }
    bool empty() const noexcept { return entries_.empty(); }
    const std::vector<std::pair<std::string, std::string>>& entries() const noexcept { return entries_; }

private:
    std::vector<std::pair<std::string, std::string>> entries_;
};

namespace headers {

inline constexpr std::string_view requestCommand = "$request-command";
inline constexpr std::string_view servicePath = "$service-path";
inline constexpr std::string_view requestPath = "$request-path";
inline constexpr std::string_view clientId = "$client-id";
inline constexpr std::string_view accept = "$accept";
inline constexpr std::string_view authToken = "$auth-token";
inline constexpr std::string_view mimeType = "$mime-type";
inline constexpr std::string_view status = "$status";

// Names the service that is asked and the client that asks, for readers of a trace.
void appendTracingInfo(Request& request, std::string_view service, std::string_view client);
// Adds this process's token. It is informative only: a provider learns from the kernel who a client is.
void appendAuthInfo(Request& request);
// Puts the request's client id into the response.
void appendRequestInfo(const RequestInfo& info, Response& response);

}  // namespace headers
}  // namespace kelo
