// Elements of the resource service: listing them, and finding the one that a person named.
//
// A bridge answers requests for an id only once that id has passed through it, so elements are looked for in lists first where
// need be; nobody above has to know.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hmx/client/client.h"
#include "hmx/client/document.h"
#include "hmx/client/resources.h"
#include "hmx/client/service.h"
#include "kelo/std/uuid.h"

namespace hmx::client {

// What is asked with one deadline; it keeps what it has learned on the way. Outlives its tasks. A resource.
// Thread: the dispatcher's.
class Elements {
public:
    // `client` outlives it.
    Elements(Client& client, Deadline deadline) : client_{client}, deadline_{deadline} {}
    Elements(const Elements&) = delete;
    Elements& operator=(const Elements&) = delete;

    // The service, which every other task waits for, too. Errors: see Domain::attach.
    Task<const Service*> service();

    // The list requests that show the whole of a resource, narrowed by the parameters (an object or null): one, or for popups
    // without a display one for each. Errors: Error, invalid for region configurations, which cannot be listed, and for pages of
    // the popups of all displays.
    Task<std::vector<Query>> listQueries(const Resource& resource, Json parameters);
    // Their answers as they came, in order.
    Task<std::vector<Answer>> pages(const Resource& resource, Json parameters);
    // The elements of these.
    Task<std::vector<Json>> list(const Resource& resource, Json parameters);

    // The id of the element that `target` names, which the service then knows, except for an id given as such. `display`: of a
    // popup, or "". Errors: Error, noElement with the names that come near, ambiguous, invalid.
    Task<std::UUID> find(Target target, std::string display = {});

    // Asks for one element; if the service does not know the id, lets it see the list and asks once more.
    Task<Answer> request(std::string command, const Resource& resource, std::UUID id, Json body);

    // The names of the displays, in the order of the service. Asked for once.
    Task<std::vector<std::string>> displayNames();

    // The name that an element goes by, also where the element itself does not say: that of a layer configuration's display.
    Task<std::string> nameOf(const Resource& resource, Json element);

private:
    Task<std::optional<std::UUID>> findByName(Target target, std::string display);
    Task<std::UUID> findInLists(Target target);

    Client& client_;
    Deadline deadline_;
    std::optional<Service> hmx_;
    std::optional<std::vector<std::string>> displayNames_;
};

// The elements of an answer: the "data" of a page, else the one that it is.
[[nodiscard]] std::vector<Json> elementsOf(const Json& document);

// The whole of it in one call, within the client's timeout. `target`: "displays/Driver_Display", "popups/Driver_Display/Volume",
// a URI. The answer's payload is what the service sent. `client` outlives the task. Errors: Error.
[[nodiscard]] Task<Answer> retrieve(Client& client, std::string target, Json parameters = nullptr);
// A body of its record's keys; null takes one away.
[[nodiscard]] Task<Answer> update(Client& client, std::string target, Json body);
// The answer holds the URI of the new element. `resource`: "regionconfigurations".
[[nodiscard]] Task<Answer> insert(Client& client, std::string resource, Json body);
[[nodiscard]] Task<Answer> remove(Client& client, std::string target);

}  // namespace hmx::client
