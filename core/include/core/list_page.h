// A page of a resource's elements, and the one place where pages are cut.
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

// Thread: any (a value); its elements are shared.
template <class T>
struct ListPage {
    kelo::optional<toluglobals::RequestHint> previous;
    kelo::optional<toluglobals::RequestHint> next;
    int total = 0;       // elements that match, on all pages
    int totalPages = 1;  // pages of `limit` elements; 1 without a limit
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

// Where a page lies among the matching elements. Thread: any (a value).
struct PageWindow {
    std::size_t previousBegin = 0;  // of the page in front, which ends at `begin`
    std::size_t begin = 0;
    std::size_t end = 0;
    int totalPages = 1;
    bool isCut = false;  // a limit leaves elements out: the page names its place and its neighbours
};
// `total`: matching elements. `behind`: how many of these stand up to and including the one that `offsetId` names.
[[nodiscard]] PageWindow placePage(const toluglobals::ToluParams& params, std::size_t total, std::size_t behind);

// Whether an id stands for one element alone.
template <class T>
[[nodiscard]] bool isOnlyOne(const std::vector<std::shared_ptr<T>>& elements, const std::UUID& id) {
    std::size_t count = 0;
    for (const auto& element : elements) count += element->id == id ? 1 : 0;
    return count == 1;
}

// The page of `elements`, none of them null, that `params` asks for, in their order:
//  1. The elements whose members match the query values. The values under `consumedKeys` have done their work before and
//     decide nothing, like those that name no member.
//  2. Of these, the ones that `limit` and `offsetId` or, without that, `offset` leave in. With `offsetId` the page begins
//     behind the element of that id, whether it matches or not. When there is no such element the page is empty, so that a
//     client that walks the pages while elements go comes to an end and not to the start again.
//  3. Of their members, those in `fields`.
// Hints name the neighbours as the request named this page, by number or by the element in front; a page at the very start has
// none in front and is named by number, as is one that begins behind an element whose id another element has, too. The previous
// page is short where fewer than `limit` elements lie in front, so that neighbours do not overlap.
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
            if (matching != i) elements[matching].swap(elements[i]);  // what does not match goes to the end
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
