// A hash map from numeric ids to objects, for entries that are added and removed all the time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace util {

// An entry does not move until it is taken out. Each has memory of its own, so adding and removing is cheap if `Value` is
// util::Pooled. To add an entry, look it up three times and remove it costs 120 instructions, and 390 in a std::unordered_map;
// among 32 entries, 176 and 424 (callgrind). A request has two such entries. Thread: one at a time.
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

    // Null if there is no such entry.
    Value* find(Id id) noexcept { return slots_[indexOf(id)].value.get(); }
    const Value* find(Id id) const noexcept { return slots_[indexOf(id)].value.get(); }

    // Adds an entry, which must not be null. If the id has one already, returns null and changes nothing.
    Value* put(Id id, std::unique_ptr<Value> entry) {
        if (2 * (size_ + 1) > slots_.size()) grow();
        Slot& slot = slots_[indexOf(id)];
        if (slot.value) return nullptr;
        slot.id = id;
        slot.value = std::move(entry);
        ++size_;
        return slot.value.get();
    }

    // Removes the entry and returns it; null if there is none.
    std::unique_ptr<Value> take(Id id) noexcept {
        std::size_t hole = indexOf(id);
        std::unique_ptr<Value> entry = std::move(slots_[hole].value);
        if (entry == nullptr) return entry;
        --size_;
        // Entries after it that are not in their own slot because this one was taken move up, so that no search has to go past a
        // free slot.
        for (std::size_t next = after(hole); slots_[next].value; next = after(next)) {
            const std::size_t preferred = slotOf(slots_[next].id);
            if (((next - preferred) & mask()) < ((next - hole) & mask())) continue;
            slots_[hole] = std::move(slots_[next]);
            hole = next;
        }
        return entry;
    }

    // Calls visit(id, value) for each entry, in no particular order. `visit` must not add or remove entries.
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
        std::unique_ptr<Value> value;  // null: the slot is free
    };

    std::size_t mask() const noexcept { return slots_.size() - 1; }
    std::size_t after(std::size_t index) const noexcept { return (index + 1) & mask(); }
    // Ids are sequential, some of them in steps of a power of two. The upper half of the product differs for neighbours.
    std::size_t slotOf(Id id) const noexcept { return ((id * 0x9E37'79B9'7F4A'7C15U) >> 32U) & mask(); }
    // The slot of the id, or the free slot where it would go.
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

    std::vector<Slot> slots_;  // their number is a power of two; at most half are taken
    std::size_t size_ = 0;
};

}  // namespace util
