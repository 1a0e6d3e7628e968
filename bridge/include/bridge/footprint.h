// How much memory a record takes.
#pragma once

#include <cstddef>
#include <string>

#include "kelo/optional.h"
#include "kelo/record.h"

namespace hmx {

// What the C library and a shared pointer's control block add to an object on the heap, approximately.
inline constexpr std::size_t heapOverhead = 32;

template <class Value>
std::size_t heapBytes(const Value& value);

namespace detail {

template <class T, class... Rows>
std::size_t membersHeapBytes(const T& record, const kelo::record::Table<T, Rows...>&) {
    return (std::size_t{0} + ... + heapBytes(record.*Rows::member));
}

}  // namespace detail

// The heap memory that a member of a record holds, without the member itself. A shared object counts for each of its holders.
// Thread: that of all who hold it.
template <class Value>
std::size_t heapBytes(const Value& value) {
    using namespace kelo::record;
    if constexpr (std::is_same_v<Value, std::string>) {
        return value.capacity() <= std::string{}.capacity() ? 0 : value.capacity() + heapOverhead;
    } else if constexpr (kelo::record::detail::isOptional<Value>) {
        return value ? heapBytes(*value) : 0;
    } else if constexpr (kelo::record::detail::isShared<Value>) {
        return value == nullptr ? 0 : sizeof(*value) + heapOverhead + heapBytes(*value);
    } else if constexpr (kelo::record::detail::isVector<Value>) {
        std::size_t sum = value.capacity() * sizeof(typename Value::value_type) + heapOverhead;
        for (const auto& element : value) sum += heapBytes(element);
        return sum;
    } else if constexpr (Record<Value>) {
        return detail::membersHeapBytes(value, recordTable(&value));
    } else {
        return 0;
    }
}

// The memory of a record with an allocation of its own. Thread: likewise.
template <kelo::record::Record T>
std::size_t footprint(const T& record) {
    return sizeof(T) + heapOverhead + heapBytes(record);
}

}  // namespace hmx
