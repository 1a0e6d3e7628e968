#include "router.h"

#include <algorithm>
#include <array>

namespace hmxgateway {
namespace {

using hmx::client::Resource;
namespace commands = kelo::commands;

constexpr std::array endpointTable{
    EndpointForm{Endpoint::about, "about", "application/json", "Version, and whether changes are allowed"},
    EndpointForm{Endpoint::events, "events", "text/event-stream", "Several things watched over one connection"},
    EndpointForm{Endpoint::recordings, "recordings", "application/json", "The recordings that are served, the newest first"},
    EndpointForm{Endpoint::openapi, "openapi.json", "application/json", "This description"},
    EndpointForm{Endpoint::healthz, "healthz", "text/plain; charset=utf-8", "Whether the gateway runs"},
    EndpointForm{Endpoint::readyz, "readyz", "text/plain; charset=utf-8", "Whether /hmx answers"},
    EndpointForm{Endpoint::metrics, "metrics", "application/openmetrics-text; version=1.0.0; charset=utf-8",
                 "Counters and states, as OpenMetrics text"},
};

constexpr std::array methodTable{
    Method{"GET", commands::retrieve}, Method{"POST", commands::insert},   Method{"PUT", commands::update},
    Method{"PATCH", commands::update}, Method{"DELETE", commands::remove},
};

constexpr std::string_view readingMethods{"GET, HEAD, OPTIONS"};

bool reads(std::string_view method) {
    return method == "GET" || method == "HEAD";
}

std::string joined(const Target& target, std::size_t from) {
    std::string path;
    for (std::size_t i = from; i < target.parts.size(); ++i) path.append(i > from ? "/" : "").append(target.parts[i]);
    return path;
}

Route resourceRoute(std::string_view method, const Target& target) {
    const Resource* resource = target.parts.size() < 2 ? nullptr : hmx::client::findResource(target.parts[1]);
    if (resource == nullptr) return NoPath{};
    const bool isElement = target.parts.size() > 2;
    std::string element = joined(target, 2);
    if (isElement && (element.empty() || element.ends_with('/'))) return NoPath{};
    std::string allowed;
    for (const Method& each : methodTable) {
        if (!takes(*resource, each, isElement)) continue;
        if (each.name == method || (each.name == "GET" && method == "HEAD")) {
            return ResourceRoute{resource, std::move(element), each.command};
        }
        allowed.append(each.name == "GET" ? std::string{readingMethods} : (allowed.empty() ? "" : ", ") + std::string{each.name});
    }
    return NoMethod{allowed.find("OPTIONS") == std::string::npos ? allowed + ", OPTIONS" : allowed};
}

}  // namespace

std::span<const EndpointForm> endpoints() noexcept {
    return endpointTable;
}

std::span<const Method> methods() noexcept {
    return methodTable;
}

bool takes(const Resource& resource, const Method& method, bool element) noexcept {
    // PUT is for what a client can also make; elsewhere an update is always of a part.
    if (method.name == "PUT" && hmx::client::findRoute(resource, commands::insert, false) == nullptr) return false;
    return hmx::client::findRoute(resource, method.command, element) != nullptr;
}

Route route(std::string_view method, const Target& target) {
    const std::string_view first = target.parts.empty() ? std::string_view{} : std::string_view{target.parts.front()};
    if (first == "hmx") return resourceRoute(method, target);
    const auto reading = [&](Route found) { return reads(method) ? std::move(found) : NoMethod{std::string{readingMethods}}; };
    if (first == "input") {
        if (target.parts.size() != 2 || target.parts[1].empty()) return NoPath{};
        return reading(SurfaceRoute{target.parts[1]});
    }
    if (first == "output") {
        if (target.parts.size() != 2 || target.parts[1] != "displayables") return NoPath{};
        return reading(PlacementsRoute{});
    }
    if (first == "recordings" && target.parts.size() > 1) {
        if (target.parts.size() > 2) return NoPath{};
        return reading(RecordingRoute{target.parts[1]});
    }
    if (target.parts.size() == 1) {
        const auto* found = std::find_if(endpointTable.begin(), endpointTable.end(),
                                         [&](const EndpointForm& each) { return each.name == first; });
        if (found != endpointTable.end()) return reading(EndpointRoute{found});
    }
    return reading(PageRoute{joined(target, 0)});
}

}  // namespace hmxgateway
