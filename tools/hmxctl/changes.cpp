#include "changes.h"

#include <map>

namespace hmxctl {
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

}  // namespace

std::vector<ElementChange> changesBetween(const std::vector<Json>& before, const std::vector<Json>& now) {
    std::map<std::string, const Json*> old;
    for (const Json& element : before) old[text(element, "id")] = &element;
    std::vector<ElementChange> changes;
    for (const Json& element : now) {
        const auto found = old.find(text(element, "id"));
        if (found == old.end()) {
            changes.push_back({.element = element});
            continue;
        }
        std::vector<std::string> members = differingMembers(*found->second, element);
        if (!members.empty()) changes.push_back({.element = element, .members = std::move(members)});
        old.erase(found);
    }
    for (const Json& element : before) {
        const auto found = old.find(text(element, "id"));
        if (found != old.end() && found->second == &element) changes.push_back({.removed = true, .element = element});
    }
    return changes;
}

}  // namespace hmxctl
