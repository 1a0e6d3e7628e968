// A map from numbers that name something to what they name, for entries that come and go all the time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace util {

// Entries stay where they are until they are taken out. Each has memory of its own, so a `Value` that is util::Pooled makes
// coming and going cheap. Thread: one at a time.
template <class Value>
class IdMap {
public:
    using Id = std::uint64_t;

    IdMap() : places_(fewestPlaces) {}
    IdMap(const IdMap&) = delete;
    IdMap& operator=(const IdMap&) = delete;
    ~IdMap() = default;

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }

    // Null when there is no such entry.
    Value* find(Id id) noexcept { return places_[indexOf(id)].value.get(); }
    const Value* find(Id id) const noexcept { return places_[indexOf(id)].value.get(); }

    // Enters what is not null under an id that has no entry; null, and nothing changes, when it has one.
    Value* put(Id id, std::unique_ptr<Value> entry) {
        if (2 * (size_ + 1) > places_.size()) grow();
        Place& place = places_[indexOf(id)];
        if (place.value) return nullptr;
        place.id = id;
        place.value = std::move(entry);
        ++size_;
        return place.value.get();
    }

    // Takes out the entry; null when there is none.
    std::unique_ptr<Value> take(Id id) noexcept {
        std::size_t hole = indexOf(id);
        std::unique_ptr<Value> entry = std::move(places_[hole].value);
        if (entry == nullptr) return entry;
        --size_;
        // Whoever stands behind it because this place was taken moves up, so that none is searched for beyond a free place.
        for (std::size_t next = after(hole); places_[next].value; next = after(next)) {
            const std::size_t home = homeOf(places_[next].id);
            if (((next - home) & mask()) < ((next - hole) & mask())) continue;
            places_[hole] = std::move(places_[next]);
            hole = next;
        }
        return entry;
    }

    // Calls visit(id, value) for each entry, in no order; `visit` takes none out and enters none.
    template <class Visit>
    void forEach(Visit visit) {
        for (Place& place : places_) {
            if (place.value) visit(place.id, *place.value);
        }
    }

private:
    static constexpr std::size_t fewestPlaces = 16;

    struct Place {
        Id id = 0;
        std::unique_ptr<Value> value;  // null: nobody's
    };

    std::size_t mask() const noexcept { return places_.size() - 1; }
    std::size_t after(std::size_t index) const noexcept { return (index + 1) & mask(); }
    // Ids are counted, some of them in steps of a power of two: what is left of the product's upper half tells neighbours apart.
    std::size_t homeOf(Id id) const noexcept { return ((id * 0x9E37'79B9'7F4A'7C15U) >> 32U) & mask(); }
    // Where the id stands, or else the free place where it would.
    std::size_t indexOf(Id id) const noexcept {
        std::size_t index = homeOf(id);
        while (places_[index].value && places_[index].id != id) index = after(index);
        return index;
    }
    void grow() {
        std::vector<Place> old(2 * places_.size());
        old.swap(places_);
        for (Place& place : old) {
            if (place.value) places_[indexOf(place.id)] = std::move(place);
        }
    }

    std::vector<Place> places_;  // a power of two, at most half of them taken
    std::size_t size_ = 0;
};

}  // namespace util
