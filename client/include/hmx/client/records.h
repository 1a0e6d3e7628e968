// Elements of /hmx as the records that they are declared by, for programs that know at compile time what they ask for.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "core/list_page.h"
#include "hmx/client/client.h"
#include "hmx/client/elements.h"

namespace hmx::client {

// All elements: list<kelo::hmx::DisplayObject>(client). Popups are those of all displays, unless the parameters name one.
// `client` outlives the task. Errors: Error.
template <class Element>
[[nodiscard]] Task<std::vector<Element>> list(Client& client, Json parameters = nullptr) {
    Elements elements{client, client.deadline()};
    const Resource& resource = resourceNamed(std::string_view{Element::resourcePath}.substr(1));
    const std::vector<Answer> pages = co_await elements.pages(resource, std::move(parameters));
    std::vector<Element> all;
    for (const Answer& page : pages) {
        for (const auto& element : recordOf<kelo::tolu::ListPage<Element>>(page.payload).data) all.push_back(std::move(*element));
    }
    co_return all;
}

// One element: get<kelo::hmx::PopupObject>(client, "popups/Driver_Display/Volume"). `client` outlives the task. Errors: Error.
template <class Element>
[[nodiscard]] Task<Element> get(Client& client, std::string target) {
    const Answer answer = co_await retrieve(client, std::move(target));
    co_return recordOf<Element>(answer.payload);
}

// The elements of an update: recordsOf<kelo::hmx::PopupObject>(update.elements). Errors: Error, unreadable. Thread: any.
template <class Element>
[[nodiscard]] std::vector<Element> recordsOf(const std::vector<Json>& documents) {
    std::vector<Element> records;
    records.reserve(documents.size());
    for (const Json& document : documents) records.push_back(recordOf<Element>(document));
    return records;
}

}  // namespace hmx::client
