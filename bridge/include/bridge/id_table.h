// The ids of a resource's elements, and the upstream names behind them.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "kelo/std/uuid.h"
#include "kelo/uuid.h"

namespace hmx {

// Of a name or a number.
struct KeyHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const noexcept { return std::hash<std::string_view>{}(name); }
    std::size_t operator()(int number) const noexcept { return std::hash<int>{}(number); }
};

// An id becomes known when an upstream answer first brings its element, and stays known. It is computed once for each key.
// Thread: the bridge's worker.
template <class Key, class Hash = KeyHash, class Equal = std::equal_to<>>
class IdTable {
public:
    // The text that the id of a key's element is made from.
    using NameOf = std::string (*)(const Key&);

    explicit IdTable(NameOf nameOf) : nameOf_{nameOf} {}
    IdTable(const IdTable&) = delete;
    IdTable& operator=(const IdTable&) = delete;

    // The id of the key's element, which is known from now on. Of keys that share an id, the one recorded last stands behind it.
    // `key` may be of another type that `Hash` and `Equal` take and that makes a Key.
    template <class View>
    const std::UUID& record(const View& key) {
        auto known = byKey_.find(key);
        if (known == byKey_.end()) {
            auto fresh = static_cast<Key>(key);
            auto& element = *byId_.try_emplace(kelo::uuid::createFromName(nameOf_(fresh)), nullptr).first;
            known = byKey_.emplace(std::move(fresh), &element).first;
        }
        known->second->second = &known->first;
        return known->second->first;
    }

    // Null for an id that is not known.
    const Key* find(const std::UUID& id) const {
        const auto known = byId_.find(id);
        return known == byId_.end() ? nullptr : known->second;
    }

private:
    // Their entries stay where they are, so each table may point into the other.
    using ById = std::unordered_map<std::UUID, const Key*>;

    NameOf nameOf_;
    ById byId_;
    std::unordered_map<Key, typename ById::value_type*, Hash, Equal> byKey_;
};

}  // namespace hmx
