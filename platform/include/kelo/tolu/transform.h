// Reduces an element to the members that a request asks for.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "kelo/record.h"
#include "kelo/toluglobals.h"

namespace kelo::tolu {

namespace detail {

// Null if the request selects nothing.
inline const std::vector<std::string>* selection(const kelo::optional<toluglobals::ToluParams>& params) noexcept {
    return params && params->fields ? &*params->fields : nullptr;
}

bool isSelected(const std::vector<std::string>& fields, std::string_view key) noexcept;

template <class T, class... Rows>
void copySelected(T& target, const T& source, const std::vector<std::string>& fields, record::Table<T, Rows...>) {
    const auto copy = [](auto& to, const auto& from) { to = from; };
    ((Rows::isRequired || isSelected(fields, Rows::key) ? copy(target.*Rows::member, source.*Rows::member) : void()), ...);
}

}  // namespace detail

// The element with only those optional members that `params` names in "fields"; id, name, uri and other required members stay.
// Without "fields", the object itself is returned. Unknown names are ignored. A null pointer stays null. Nested objects are
// shared with the original. Thread: any.
template <class T>
requires record::Record<std::remove_const_t<T>>
[[nodiscard]] std::shared_ptr<T> transformElement(std::shared_ptr<T> object,
                                                  const kelo::optional<toluglobals::ToluParams>& params) {
    const auto* fields = detail::selection(params);
    if (fields == nullptr || object == nullptr) return object;
    auto selected = std::make_shared<std::remove_const_t<T>>();
    detail::copySelected<std::remove_const_t<T>>(*selected, *object, *fields, record::TableOf<std::remove_const_t<T>>{});
    return selected;
}

// The same for a value; without "fields" it is moved through.
template <record::Record T>
[[nodiscard]] T transformElement(T object, const kelo::optional<toluglobals::ToluParams>& params) {
    const auto* fields = detail::selection(params);
    if (fields == nullptr) return object;
    T selected;
    detail::copySelected(selected, object, *fields, record::TableOf<T>{});
    return selected;
}

}  // namespace kelo::tolu
