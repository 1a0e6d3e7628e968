// The ids of a resource's elements, and the upstream names that they stand for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "bridge/identity.h"
#include "kelo/gauge.h"
#include "kelo/std/uuid.h"
#include "kelo/url.h"
#include "kelo/uuid.h"

namespace hmx {

// Hashes a name or a number.
struct KeyHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const noexcept { return std::hash<std::string_view>{}(name); }
    std::size_t operator()(int number) const noexcept { return std::hash<int>{}(number); }
};

// The length of a key's text.
inline std::size_t lengthOf(const std::string& name) noexcept {
    return name.size();
}
inline std::size_t lengthOf(int) noexcept {
    return 0;
}

// What a table may keep. If it would exceed one of these, it forgets everything first.
inline constexpr std::size_t mostIds = 16'384;
inline constexpr std::size_t mostIdText = std::size_t{2} << 20U;

// An id becomes known when an upstream answer first contains its element. It stays known until there are too many: then all are
// forgotten, and answers have to bring them again. Id and URI are made once for each key. Thread: the bridge's worker.
template <class Key, class Hash = KeyHash, class Equal = std::equal_to<>>
class IdTable {
public:
    // The text that the id of a key's element is made from.
    using NameOf = std::string (*)(const Key&);
    using UriOf = kelo::url (*)(const std::UUID&);
    // Called if another key turns out to have the same id.
    using OnTie = void (*)(const Key& known, const Key& fresh);

    IdTable(NameOf nameOf, UriOf uriOf, OnTie onTie = nullptr) : nameOf_{nameOf}, uriOf_{uriOf}, onTie_{onTie} {}
    IdTable(const IdTable&) = delete;
    IdTable& operator=(const IdTable&) = delete;

    // Returns the identity of the key's element, which is known from now on; valid until the next call. If several keys have the
    // same id, it stands for the one recorded last. `key` may be of another type that `Hash` and `Equal` accept and that a Key
    // can be made from.
    template <class View>
    const Identity& record(const View& key) {
        // Lists usually come in the same order: an element is mostly the one that followed the last time, and then needs no hash.
        Element* element = last_ == nullptr ? nullptr : last_->next;
        if (element == nullptr || !Equal{}(*element->key, key)) {
            element = &enter(key);
            if (last_ != nullptr) last_->next = element;
        }
        last_ = element;
        return element->identity;
    }

    // Null if the id is not known.
    const Key* find(const std::UUID& id) const {
        const auto known = byId_.find(id);
        return known == byId_.end() ? nullptr : known->second.key;
    }

private:
    struct Element {
        Identity identity;
        const Key* key = nullptr;
        Element* next = nullptr;  // the element that was recorded after this one, the last time
    };

    template <class View>
    Element& enter(const View& key) {
        auto known = byKey_.find(key);
        if (known == byKey_.end()) {
            auto fresh = static_cast<Key>(key);
            if (byKey_.size() >= mostIds || text_ + lengthOf(fresh) > mostIdText) forget();
            const std::UUID id = kelo::uuid::createFromName(nameOf_(fresh));
            const auto [place, isNew] = byId_.try_emplace(id, Element{{id, uriOf_(id)}});
            if (!isNew && onTie_ != nullptr && place->second.key != nullptr) onTie_(*place->second.key, fresh);
            text_ += lengthOf(fresh);
            known = byKey_.emplace(std::move(fresh), &place->second).first;
            count_.set(static_cast<std::int64_t>(byId_.size()));
        }
        known->second->key = &known->first;
        return *known->second;
    }

    void forget() {
        forgotten_.add(static_cast<std::int64_t>(byId_.size()));
        byKey_.clear();
        byId_.clear();
        last_ = nullptr;
        text_ = 0;
    }

    NameOf nameOf_;
    UriOf uriOf_;
    OnTie onTie_;
    // Entries of these maps do not move, so each may point into the other.
    std::unordered_map<std::UUID, Element> byId_;
    std::unordered_map<Key, Element*, Hash, Equal> byKey_;
    Element* last_ = nullptr;  // the one recorded last
    std::size_t text_ = 0;     // of all keys
    kelo::Gauge count_{"knownIds"};
    kelo::Gauge forgotten_{"forgottenIds"};
};

}  // namespace hmx
