#include "hmx/client/changes.h"

#include <map>
#include <utility>

namespace hmx::client {
namespace {

std::vector<std::string> differingMembers(const Json& before, const Json& now) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : now.items()) {
        if (!before.contains(key) || member(before, key) != value) keys.push_back(key);
    }
    for (const auto& [key, value] : before.items()) {
        if (!now.contains(key)) keys.push_back(key);
    }
    return keys;
}

// Which of the elements with an id.
using Identity = std::pair<std::string, std::size_t>;

// Names elements in turn.
class Identities {
public:
    Identity of(const Json& element) {
        const std::string id = text(element, "id");
        return {id, seen_[id]++};
    }

private:
    std::map<std::string, std::size_t> seen_;
};

}  // namespace

std::vector<ElementChange> changesBetween(const std::vector<Json>& before, const std::vector<Json>& now) {
    std::map<Identity, const Json*> old;
    Identities earlier;
    for (const Json& element : before) old[earlier.of(element)] = &element;
    Identities present;
    std::vector<ElementChange> changes;
    for (const Json& element : now) {
        const auto found = old.find(present.of(element));
        if (found == old.end()) {
            changes.push_back({.kind = ElementChange::Kind::added, .element = element});
            continue;
        }
        std::vector<std::string> members = differingMembers(*found->second, element);
        if (!members.empty()) changes.push_back({.element = element, .members = std::move(members)});
        old.erase(found);
    }
    Identities again;
    for (const Json& element : before) {
        if (old.contains(again.of(element))) changes.push_back({.kind = ElementChange::Kind::removed, .element = element});
    }
    return changes;
}

}  // namespace hmx::client
