// The ids of a resource's elements, and the upstream names behind them.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "kelo/std/uuid.h"
#include "kelo/uuid.h"

namespace hmx {

// An id becomes known when an upstream answer first brings its element, and stays known. It is computed once for each key.
// Thread: the bridge's worker.
template <class Key, class Less = std::less<>>
class IdTable {
public:
    // The text that the id of a key's element is made from.
    using NameOf = std::string (*)(const Key&);

    explicit IdTable(NameOf nameOf) : nameOf_{nameOf} {}
    IdTable(const IdTable&) = delete;
    IdTable& operator=(const IdTable&) = delete;

    // The id of the key's element, which is known from now on. Of keys that share an id, the one recorded last stands behind it.
    // `key` may be of another type that `Less` compares with Key and that makes one.
    template <class View>
    const std::UUID& record(const View& key) {
        auto known = byKey_.find(key);
        if (known == byKey_.end()) {
            auto fresh = static_cast<Key>(key);
            const auto id = byId_.emplace(kelo::uuid::createFromName(nameOf_(fresh)), nullptr).first;
            known = byKey_.emplace(std::move(fresh), id).first;
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
    using ById = std::map<std::UUID, const Key*>;

    NameOf nameOf_;
    ById byId_;
    std::map<Key, typename ById::iterator, Less> byKey_;
};

}  // namespace hmx
