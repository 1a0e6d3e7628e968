// The objects of answers that are over, used again.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace hmx {

// What the pointer points to, for writing over: the object that is there if nobody else holds it, else a new one.
// Thread: that of all who hold it.
template <class T>
T& ownObject(std::shared_ptr<T>& pointer) {
    if (pointer.use_count() != 1) pointer = std::make_shared<T>();
    return *pointer;
}

// The elements of the last page, of which the next one is made: a page of as many needs no memory then, which saves a request of
// four displays a tenth of its instructions. The price is that whoever fills an element must write every member.
// Thread: the bridge's worker, on which pages end, too.
template <class Element>
class SpareElements {
public:
    using Elements = std::vector<std::shared_ptr<Element>>;

    // Fills a page's list: `fill` is called with a callable that gives the next element, with whatever was in it last. The list
    // is to be moved from.
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
    // Takes back the list of a page that is over; of a long one nothing, a thread does not hold on to that for a rare one's sake.
    void keep(Elements&& elements) noexcept {
        if (elements.size() <= most) elements_.swap(elements);
    }

private:
    static constexpr std::size_t most = 256;

    Elements elements_;         // of the last page
    std::size_t lastSize_ = 0;  // a page is likely to be as long as the last
};

}  // namespace hmx
