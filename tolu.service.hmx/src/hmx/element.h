// The common part of all elements of the service "/hmx".
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "kelo/record.h"
#include "kelo/tolu/xobject.h"
#include "kelo/toluutils.h"

namespace kelo::hmx {

inline constexpr std::string_view serviceRoot = "/hmx";

// Base of an element type. It is the only place where the path of the type's resource is named. Thread: any (a value).
template <kelo::record::Key Path>
struct Element : kelo::tolu::XObject {
    using XObject::XObject;

private:
    static constexpr auto pattern_ = [] {
        std::array<char, sizeof Path.text + 1> text{};
        std::size_t length = 0;
        for (const char c : Path.text) text[length++] = c;
        text[length - 1] = '/';  // instead of the terminator
        text[length] = '*';
        return text;
    }();

public:
    // The path of the resource within the service: "/displays".
    static constexpr std::string_view resourcePath{Path.text, sizeof Path.text - 1};
    // The pattern of its elements' paths: "/displays/*".
    static constexpr std::string_view elementPattern{pattern_.data(), pattern_.size()};

    // For example "/hmx/displays/19243473-0126-5f4b-b1bf-4879152c72e5".
    [[nodiscard]] static kelo::url elementUri(const std::UUID& id) {
        return kelo::toluutils::createElementUri(serviceRoot, resourcePath, id);
    }
};

// The table of an element type: the members of every element, then its own.
template <class T, class... Own>
using ElementTable = kelo::record::Table<T, kelo::record::Row<"id", &T::id>, kelo::record::Row<"name", &T::name>,
                                         kelo::record::Row<"uri", &T::uri>, Own...>;

}  // namespace kelo::hmx
