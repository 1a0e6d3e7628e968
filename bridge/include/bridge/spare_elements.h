// The objects of answers that are over, used again.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace hmx {

// What the pointer points to, for writing over: the object that is there if nobody else holds it, else a new one.
// Thread: that of all who hold it.
template <class T>
T& ownObject(std::shared_ptr<T>& pointer) {
    if (pointer.use_count() != 1) pointer = std::make_shared<T>();
    return *pointer;
}

// The elements of the last page: once that is gone, the next one is made of them. A page of four displays then needs no memory
// but its list, which saves a request a tenth of its instructions. The price is that whoever fills an element must write every
// member. Of a long page only so many are kept. Thread: the bridge's worker, on which pages end, too.
template <class Element>
class SpareElements {
public:
    // For the place in the page that is being made; with whatever was in it last.
    std::shared_ptr<Element> take(std::size_t index) {
        if (index >= most) return std::make_shared<Element>();
        if (index >= elements_.size()) elements_.resize(index + 1);
        ownObject(elements_[index]);
        return elements_[index];
    }

private:
    static constexpr std::size_t most = 64;

    std::vector<std::shared_ptr<Element>> elements_;
};

}  // namespace hmx
