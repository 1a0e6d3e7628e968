// What a method and a path stand for: decided by the resources' own route tables and one table of the gateway's endpoints.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "hmx/client/resources.h"
#include "kelo/commands.h"
#include "refusal.h"
#include "target.h"

namespace hmxgateway {

enum class Endpoint : std::uint8_t { about, events, recordings, openapi, healthz, readyz, metrics };

// Thread: any (a constant).
struct EndpointForm {
    Endpoint endpoint;
    std::string_view name;  // "about": the path without its slash, and the name in the metrics
    std::string_view mediaType;
    std::string_view summary;
};
[[nodiscard]] std::span<const EndpointForm> endpoints() noexcept;

// The HTTP method of a command. Thread: any (a constant).
struct Method {
    std::string_view name;
    kelo::commands::Id command;
};
[[nodiscard]] std::span<const Method> methods() noexcept;
// Whether the resource takes the method, on its elements or as a whole.
[[nodiscard]] bool takes(const hmx::client::Resource& resource, const Method& method, bool element) noexcept;

struct ResourceRoute {
    const hmx::client::Resource* resource = nullptr;
    std::string element{};  // an id or a name; "" for the whole resource
    kelo::commands::Id command = kelo::commands::retrieve;
};
struct SurfaceRoute {
    std::string display;
};
// Of all displayables.
struct PlacementsRoute {};
struct RecordingRoute {
    std::string name;
};
struct EndpointRoute {
    const EndpointForm* form = nullptr;
};
struct PageRoute {
    std::string path;
};
// The methods that there are instead.
struct NoMethod {
    std::string allowed;
};
struct NoPath {};

using Route =
    std::variant<NoPath, NoMethod, ResourceRoute, SurfaceRoute, PlacementsRoute, RecordingRoute, EndpointRoute, PageRoute>;

// HEAD is as GET. Thread: any.
[[nodiscard]] Route route(std::string_view method, const Target& target);

}  // namespace hmxgateway
