// The selection of an element's members that a request asks for.
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

// Null when the request makes no selection.
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

// The element with those of its optional members that `params` names in "fields"; id, name, uri and whatever else is required
// stay. Without "fields" the very object that was given. Names that are no member's are ignored. A null pointer stays one.
// Nested objects are shared with the original. Thread: any.
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

// Likewise for a value, which is moved through when nothing is selected.
template <record::Record T>
[[nodiscard]] T transformElement(T object, const kelo::optional<toluglobals::ToluParams>& params) {
    const auto* fields = detail::selection(params);
    if (fields == nullptr) return object;
    T selected;
    detail::copySelected(selected, object, *fields, record::TableOf<T>{});
    return selected;
}

}  // namespace kelo::tolu
