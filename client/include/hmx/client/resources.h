// The five resources of /hmx: their records and routes, and how their elements are named.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hmx/client/document.h"
#include "hmx/client/schema.h"
#include "hmx/route.h"
#include "kelo/commands.h"
#include "kelo/std/uuid.h"
#include "kelo/url.h"

namespace hmx::client {

inline constexpr std::string_view hmxService = "/hmx";

// Thread: any (a constant).
struct Resource {
    std::string_view name;  // "displays"
    std::string_view path;  // "/displays"
    const Description& (*element)();
    std::span<const kelo::hmx::Route> (*routes)() noexcept;
    std::string_view nameForm;              // "DISPLAY/NAME"
    std::string_view nameFilter;            // the parameter that makes the service look for one name only; "" for none
    kelo::url (*uri)(const std::UUID& id);  // as the service itself writes it
    // The id of a name, by the rule of the resource; nothing for a name that is not of its form.
    std::optional<std::UUID> (*idOf)(std::string_view name);
};

// Null when the resource has no such command, on its elements or as a whole.
[[nodiscard]] const kelo::hmx::Route* findRoute(const Resource& resource, kelo::commands::Id command, bool element) noexcept;
[[nodiscard]] inline bool isListable(const Resource& resource) noexcept {
    return findRoute(resource, kelo::commands::retrieve, false) != nullptr;
}

[[nodiscard]] std::span<const Resource> resources() noexcept;
[[nodiscard]] std::vector<std::string> resourceNames();
// Null when there is none of that name.
[[nodiscard]] const Resource* findResource(std::string_view name) noexcept;
// Errors: Error, invalid, with what may have been meant.
[[nodiscard]] const Resource& resourceNamed(std::string_view name);

// What "displays", "displays/NAME" or an element's URI names. Thread: any (a value).
struct Target {
    Target() = default;
    Target(const Resource* itsResource, std::string itsElement) : resource{itsResource}, element{std::move(itsElement)} {}

    const Resource* resource = nullptr;
    std::string element;  // a UUID, the beginning of one, or a name; "" for the whole resource

    // "displays/NAME".
    std::string text() const;
};
// The words before and after the first slash, without the service's own path; no second one where there is no slash.
struct TargetWords {
    std::string_view resource;
    std::optional<std::string_view> element{};
};
[[nodiscard]] TargetWords splitTarget(std::string_view word) noexcept;
// Errors: Error, invalid.
[[nodiscard]] Target parseTarget(std::string_view word);

// The keys that a retrieve takes: the members of the element, and those of paging and selection. Static storage.
[[nodiscard]] Members parametersOf(const Resource& resource);

// "/displays/1924…".
[[nodiscard]] std::string elementPath(const Resource& resource, const std::UUID& id);
// The name under which a person would look for the element: what `RESOURCE/NAME` takes, "" when it has none.
[[nodiscard]] std::string nameOfElement(const Resource& resource, const Json& element);

// The element's UUID; nil when it has none.
[[nodiscard]] std::UUID idOfElement(const Json& element);

}  // namespace hmx::client
