#include "kelo/headers.h"

#include <unistd.h>

#include <algorithm>

#include "kelo/request.h"
#include "kelo/response.h"

namespace kelo {

const std::string* HeaderMap::find(std::string_view key) const noexcept {
    const auto entry = std::find_if(entries_.begin(), entries_.end(), [key](const auto& e) { return e.first == key; });
    return entry == entries_.end() ? nullptr : &entry->second;
}

void HeaderMap::set(std::string_view key, std::string_view value) {
    const auto entry = std::find_if(entries_.begin(), entries_.end(), [key](const auto& e) { return e.first == key; });
    if (entry == entries_.end()) {
        entries_.emplace_back(key, value);
    } else {
        entry->second = value;
    }
}

namespace headers {

void appendTracingInfo(Request& request, std::string_view service, std::string_view client) {
    request.setServicePath(service);
    request.setClientId(client);
}

void appendAuthInfo(Request& request) {
    static const std::string token = "uid=" + std::to_string(::geteuid());
    request.setAuthToken(token);
}

void appendRequestInfo(const RequestInfo& info, Response& response) {
    response.setClientId(info.clientId());
}

}  // namespace headers
}  // namespace kelo
