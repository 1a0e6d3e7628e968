// A page of a resource's elements. All pages are cut here.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "kelo/optional.h"
#include "kelo/record.h"
#include "kelo/tolu/properties.h"
#include "kelo/tolu/transform.h"
#include "kelo/toluglobals.h"

namespace kelo::tolu {

// Thread: any (a value); the elements are shared.
template <class T>
struct ListPage {
    kelo::optional<toluglobals::RequestHint> previous;
    kelo::optional<toluglobals::RequestHint> next;
    int total = 0;       // number of matching elements on all pages
    int totalPages = 1;  // number of pages of `limit` elements; 1 without a limit
    kelo::optional<int> offset;
    kelo::optional<std::UUID> offsetId;
    std::vector<std::shared_ptr<T>> data;
};
template <class T>
constexpr auto recordTable(const ListPage<T>*) {
    using kelo::record::Row;
    using Page = ListPage<T>;
    return kelo::record::Table<Page, Row<"previous", &Page::previous>, Row<"next", &Page::next>, Row<"total", &Page::total>,
                               Row<"totalPages", &Page::totalPages>, Row<"offset", &Page::offset>,
                               Row<"offsetId", &Page::offsetId>, Row<"data", &Page::data>>{"ListPage"};
}
template <class T>
bool serialize(serializer::IStructuredSerializer& writer, const ListPage<T>& page) {
    return record::write(writer, page);
}
template <class T>
bool deserialize(serializer::IStructuredPullDeserializer& reader, ListPage<T>& page) {
    return record::read(reader, page);
}

// The position of a page among the matching elements. Thread: any (a value).
struct PageWindow {
    std::size_t previousBegin = 0;  // of the previous page, which ends at `begin`
    std::size_t begin = 0;
    std::size_t end = 0;
    int totalPages = 1;
    bool isCut = false;  // a limit leaves elements out: the page gives its position and its neighbours
};
// `total`: the number of matching elements. `behind`: the number of these up to and including the one that `offsetId` names.
[[nodiscard]] PageWindow placePage(const toluglobals::ToluParams& params, std::size_t total, std::size_t behind);

// Whether exactly one element has this id.
template <class T>
[[nodiscard]] bool isOnlyOne(const std::vector<std::shared_ptr<T>>& elements, const std::UUID& id) {
    std::size_t count = 0;
    for (const auto& element : elements) count += element->id == id ? 1 : 0;
    return count == 1;
}

// Returns the page of `elements`, which must not be null, that `params` asks for. The order is kept.
//   1. Selects the elements whose members match the query values. Values under `consumedKeys` have been applied before and are
//      ignored here, like those that name no member.
//   2. Of these, takes the ones given by `limit` and `offsetId` or, without offsetId, `offset`. With `offsetId` the page begins
//      after the element with that id, whether or not that element matches. If there is no such element, the page is empty: a
//      client that walks the pages while elements disappear then comes to an end instead of starting again.
//   3. Of their members, keeps those named in `fields`.
// Hints name the neighbours in the way in which the request named this page: by number, or by the element before the page. A page
// that begins at the first element has none before it and is named by number; so is one that begins after an element whose id is
// not unique. If fewer than `limit` elements precede this page, the previous page has only these, so that the two do not overlap.
template <class T>
[[nodiscard]] ListPage<T> cutPage(std::vector<std::shared_ptr<T>> elements, const kelo::optional<toluglobals::ToluParams>& params,
                                  std::initializer_list<std::string_view> consumedKeys = {}) {
    ListPage<T> page;
    if (!params) {
        page.total = static_cast<int>(elements.size());
        page.data = std::move(elements);
        return page;
    }
    const Filter<T> filter{params->values, {consumedKeys.begin(), consumedKeys.size()}};
    std::size_t matching = 0;
    kelo::optional<std::size_t> behind;
    for (std::size_t i = 0; i < elements.size(); ++i) {
        const bool isOffset = params->offsetId && elements[i]->id == *params->offsetId;
        if (filter.admits(*elements[i])) {
            if (matching != i) elements[matching].swap(elements[i]);  // elements that do not match move to the end
            ++matching;
        }
        if (isOffset) behind = matching;
    }

    const PageWindow window = placePage(*params, matching, behind.value_or(matching));
    page.total = static_cast<int>(matching);
    page.totalPages = window.totalPages;
    if (window.isCut) {
        const auto hint = [&](std::size_t begin, std::size_t length) {
            toluglobals::RequestHint result;
            result.limit = static_cast<int>(length);
            if (params->offsetId && begin > 0 && isOnlyOne(elements, elements[begin - 1]->id)) {
                result.offsetId = elements[begin - 1]->id;
            } else {
                result.offset = static_cast<int>(begin);
            }
            return result;
        };
        if (window.begin > 0) page.previous = hint(window.previousBegin, window.begin - window.previousBegin);
        if (window.end < matching) page.next = hint(window.end, static_cast<std::size_t>(*params->limit));
        page.offsetId = params->offsetId;
        if (!params->offsetId) page.offset = params->offset.value_or(0);
    }
    const auto at = [&](std::size_t place) { return elements.begin() + static_cast<std::ptrdiff_t>(place); };
    elements.erase(at(window.end), elements.end());
    elements.erase(elements.begin(), at(window.begin));
    for (auto& element : elements) element = transformElement(std::move(element), params);
    page.data = std::move(elements);
    return page;
}

}  // namespace kelo::tolu
