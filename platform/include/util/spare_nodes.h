// The nodes of a map's entries that are over, for its next ones.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace util {

// Entries that come and go all the time then need no memory of their own. `Map`: a standard map whose mapped type has a default,
// which is what an entry holds while it is spare. Thread: one at a time, as the map.
template <class Map>
class SpareNodes {
public:
    SpareNodes() { nodes_.reserve(most); }

    // Enters the key with the default; the entry, and whether it is new.
    auto enter(Map& map, const typename Map::key_type& key) -> std::pair<typename Map::iterator, bool> {
        if (nodes_.empty()) return map.try_emplace(key);
        nodes_.back().key() = key;
        auto inserted = map.insert(std::move(nodes_.back()));
        if (inserted.inserted) {
            nodes_.pop_back();
        } else {
            nodes_.back() = std::move(inserted.node);
        }
        return {inserted.position, inserted.inserted};
    }
    // Takes the entry out of the map and hands out what it held.
    typename Map::mapped_type take(Map& map, typename Map::const_iterator entry) {
        auto node = map.extract(entry);
        typename Map::mapped_type value = std::exchange(node.mapped(), {});
        if (nodes_.size() < most) nodes_.push_back(std::move(node));
        return value;
    }

private:
    static constexpr std::size_t most = 64;

    std::vector<typename Map::node_type> nodes_;
};

}  // namespace util
