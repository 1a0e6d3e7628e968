// Operations on single members of elements, and the filter of list requests. Thread: any; nothing here has state.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "kelo/record.h"
#include "util/config/value.h"

namespace kelo::tolu {

namespace properties {

// What a query value says about a member. `undecided`: nothing, because it has another type than the member, or because no query
// value can have the member's type (a nested object or an array of them).
enum class Match : std::uint8_t { no, yes, undecided };

// Assigns the member if it is present in the source; otherwise the target's stays as it is.
template <class V, class C, class T>
requires std::is_base_of_v<C, T>
void copyProperty(V C::*member, T& target, const T& source) {
    if (record::detail::isPresent(source.*member)) target.*member = source.*member;
}

// Whether the member is absent from both objects, or present in both with equal values (nested objects: with equal members).
template <class V, class C, class T>
requires std::is_base_of_v<C, T>
[[nodiscard]] bool compareProperty(V C::*member, const T& a, const T& b) {
    return record::detail::valuesEqual(a.*member, b.*member);
}

[[nodiscard]] Match matchProperty(bool member, const util::config::Value& value) noexcept;
[[nodiscard]] Match matchProperty(int member, const util::config::Value& value) noexcept;
// The value is compared as a float, so that a value written as a float matches again. Integers match too.
[[nodiscard]] Match matchProperty(float member, const util::config::Value& value) noexcept;
[[nodiscard]] Match matchProperty(const std::string& member, const util::config::Value& value) noexcept;
// A string must be in the member's list; of an array of strings, each must be.
[[nodiscard]] Match matchProperty(const std::vector<std::string>& member, const util::config::Value& value) noexcept;
// By their text form.
[[nodiscard]] Match matchProperty(const std::UUID& member, const util::config::Value& value) noexcept;
[[nodiscard]] Match matchProperty(const kelo::url& member, const util::config::Value& value) noexcept;
// For enumerations: by the value's name.
[[nodiscard]] Match matchName(std::string_view member, const util::config::Value& value) noexcept;

namespace detail {

template <class V>
Match matchValue(const V& member, const util::config::Value& value) noexcept {
    using namespace record::detail;
    if constexpr (isBasic<V> || std::is_same_v<V, std::vector<std::string>>) {
        return matchProperty(member, value);
    } else if constexpr (std::is_enum_v<V>) {
        return matchName(record::enumName(member), value);
    } else if constexpr (isOptional<V>) {
        using X = typename V::value_type;
        if (member) return matchValue(*member, value);
        // An absent member matches nothing; but a value that could never match it is still undecided.
        if constexpr (std::is_default_constructible_v<X>) {
            return matchValue(X{}, value) == Match::undecided ? Match::undecided : Match::no;
        }
    }
    return Match::undecided;
}

}  // namespace detail

// Whether the object's member equals a query value; nothing is converted. An absent member does not match.
template <class V, class C, class T>
requires std::is_base_of_v<C, T>
[[nodiscard]] Match matchProperty(V C::*member, const T& object, const util::config::Value& value) noexcept {
    return detail::matchValue(object.*member, value);
}

}  // namespace properties

// Whether a query value filters: its key is neither in `consumed` nor one of the protocol's own ("fields", "limit", "offset",
// "offsetId").
[[nodiscard]] bool isFilterKey(std::string_view key, std::span<const std::string_view> consumed) noexcept;

// Admits an element unless some query value that filters and names a member does not match. The members are looked up in the
// constructor, so that each element costs only the comparisons. Refers to the query. Thread: any (a value).
template <record::Record T>
class Filter {
public:
    explicit Filter(const util::config::Dictionary& query, std::span<const std::string_view> consumed = {}) {
        addRows(query, consumed, record::TableOf<T>{});
    }

    [[nodiscard]] bool admits(const T& object) const noexcept {
        return std::all_of(conditions_.begin(), conditions_.begin() + count_, [&](const Condition& condition) {
            return condition.match(object, *condition.value) != properties::Match::no;
        });
    }

private:
    struct Condition {
        properties::Match (*match)(const T&, const util::config::Value&) noexcept;
        const util::config::Value* value;
    };

    template <class... Rows>
    void addRows(const util::config::Dictionary& query, std::span<const std::string_view> consumed, record::Table<T, Rows...>) {
        const auto add = [&]<class Row>(Row* /*row*/) {
            const util::config::Value* const value = query.find(Row::key);
            if (value == nullptr || !isFilterKey(Row::key, consumed)) return;
            conditions_[static_cast<std::size_t>(count_++)] = {[](const T& object, const util::config::Value& wanted) noexcept {
                                                                   return properties::matchProperty(Row::member, object, wanted);
                                                               },
                                                               value};
        };
        (add(static_cast<Rows*>(nullptr)), ...);
    }
    template <class... Rows>
    static constexpr std::size_t rowCount(record::Table<T, Rows...> /*table*/) {
        return sizeof...(Rows);
    }

    std::array<Condition, rowCount(record::TableOf<T>{})> conditions_;
    std::ptrdiff_t count_ = 0;
};

}  // namespace kelo::tolu
