// Reuses the objects of answers that are over.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace hmx {

// Returns an object to be overwritten: the one that the pointer owns if nobody else holds it, otherwise a new one. Thread: that
// of all who hold it.
template <class T>
T& ownObject(std::shared_ptr<T>& pointer) {
    if (pointer.use_count() != 1) pointer = std::make_shared<T>();
    return *pointer;
}

// Keeps the elements of the last page for the next one. A page of the same length then needs no memory; for four displays that
// saves a tenth of a request's instructions. In return, the code that fills an element must write every member. Thread: the
// bridge's worker, where pages are also destroyed.
template <class Element>
class SpareElements {
public:
    using Elements = std::vector<std::shared_ptr<Element>>;

    // Fills a page's list: calls `fill` with a function that returns the next element, which still has its old content. The
    // result is to be moved from.
    template <class Fill>
    Elements&& make(Fill&& fill) {
        elements_.reserve(lastSize_);
        std::size_t count = 0;
        std::forward<Fill>(fill)([&]() -> Element& {
            if (count == elements_.size()) elements_.emplace_back();
            return ownObject(elements_[count++]);
        });
        elements_.resize(count);
        lastSize_ = count;
        return std::move(elements_);
    }
    // Takes back the list of a page that is over; a long list is not kept, because it is rare.
    void keep(Elements&& elements) noexcept {
        if (elements.size() <= most) elements_.swap(elements);
    }

private:
    static constexpr std::size_t most = 256;

    Elements elements_;         // those of the last page
    std::size_t lastSize_ = 0;  // a page is likely to be as long as the last one
};

}  // namespace hmx
