// Elements of the resource service: listing them, and finding the one that a person named.
//
// A bridge answers requests for an id only once that id has passed through it, so elements are looked for in lists first where
// need be; nobody above has to know.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "context.h"
#include "document.h"
#include "kelo/std/uuid.h"
#include "resources.h"
#include "service.h"

namespace hmxctl {

// What RESOURCE[/ELEMENT] or a URI names. Thread: any (a value).
struct Target {
    const Resource* resource = nullptr;
    std::string element;  // "" for the whole resource

    // As typed.
    std::string text() const;
};

// Errors: Failure (usage).
[[nodiscard]] Target parseTarget(std::string_view word, std::string_view verb);
// The same for a verb that works on one element.
[[nodiscard]] Target parseElement(std::string_view word, std::string_view verb);

// The path of the requests for the lists that make up a resource: one, or for popups one for each display.
// Thread: main.
class Elements {
public:
    explicit Elements(Context& context) : Elements{context, context.deadline} {}
    Elements(Context& context, const Deadline& deadline)
        : deadline_{deadline}, hmx_{context.service(hmxService, deadline, context.arguments.mimeType)} {}

    const Service& service() const noexcept { return hmx_; }

    // The list requests that show the whole of a resource, narrowed by the parameters (an object or null). Errors: Failure,
    // usage for region configurations.
    std::vector<Query> listQueries(const Resource& resource, const Json& parameters);
    // Their answers' elements, in order.
    std::vector<Json> list(const Resource& resource, const Json& parameters);

    // The id of the element that `target` names, which the service then knows, except for an id given as such. `display`: of a
    // popup, or "". Errors: Failure, notFound with the names that come near, usage for one that fits several.
    std::UUID find(const Target& target, const std::string& display = {});

    // Asks for one element; if the service does not know the id, lets it see the list and asks once more.
    Answer request(std::string_view command, const Resource& resource, const std::UUID& id, const Json& body);

    // The names of the displays, in the order of the service. Asked for once.
    const std::vector<std::string>& displayNames();

    // The name that an element goes by, also where the element itself does not say: that of a layer configuration's display.
    std::string nameOf(const Resource& resource, const Json& element);

private:
    std::optional<std::UUID> findByName(const Target& target, const std::string& display);
    std::UUID findInLists(const Target& target);

    Deadline deadline_;
    Service hmx_;
    std::optional<std::vector<std::string>> displayNames_;
};

// The elements of an answer: the "data" of a page, else the one that it is.
[[nodiscard]] std::vector<Json> elementsOf(const Json& document);

}  // namespace hmxctl
