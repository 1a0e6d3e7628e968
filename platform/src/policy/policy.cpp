#include "policy/policy.h"

#include <algorithm>

// The decision. Of the rules that match, a rule gives way to one that is more specific: that matches only what the other one
// matches, but not all of it. A rule may be more specific in whom it names (a user, a group, everybody), in the service, in the
// command (some, all) or in the path. It must not be less specific in any of these, or the two are not comparable, and neither
// gives way. Among the rules that are left, a deny wins. Of several that say the same, the one is named to which most others gave
// way, or the first in the order of files and lines.
//
// So an exception to a deny has to be written as one: narrower than what it is an exception from. An allow that somebody else
// adds for a larger group, or for a larger part of a service, opens nothing that was denied.
//
// Where no rule matches, what counts is what would count without a policy: a service is for its own user and root.

namespace kelo::policy {

bool Subject::is(const Identity& who) const noexcept {
    switch (kind) {
        case Kind::user:
            return who.uid == id;
        case Kind::group:
            return who.isMemberOf(id);
        case Kind::everybody:
            break;
    }
    return true;
}

bool Subject::isWithin(const Subject& other) const noexcept {
    // It is asked of rules that both match a peer, so a user is a member of the group.
    return kind > other.kind || (kind == other.kind && id == other.id);
}

bool Rule::isWithin(const Rule& other) const noexcept {
    return (command == other.command || (other.command == anyCommand && command != publish)) && subject.isWithin(other.subject) &&
           service.isWithin(other.service) && path.isWithin(other.path);
}

std::vector<std::uint32_t> Policy::rulesFor(const Identity& who, std::string_view service) const {
    std::vector<std::uint32_t> found;
    for (std::uint32_t i = 0; i < rules.size(); ++i) {
        if (rules[i].subject.is(who) && rules[i].service.matches(service)) found.push_back(i);
    }
    return found;
}

Decision Policy::decide(std::span<const std::uint32_t> matching, bool isDefault) const {
    const auto isNarrower = [&](std::uint32_t a, std::uint32_t b) {
        return rules[a].isWithin(rules[b]) && !rules[b].isWithin(rules[a]);
    };
    struct Alike {
        std::uint32_t first;
        std::size_t count;
    };
    // However many rules match a request, few of them are different, and only those are all compared with each other.
    std::vector<Alike> different;
    for (const std::uint32_t index : matching) {
        const Rule& rule = rules[index];
        const auto same = std::find_if(different.begin(), different.end(), [&](const Alike& alike) {
            const Rule& other = rules[alike.first];
            return other.allows == rule.allows && other.isWithin(rule) && rule.isWithin(other);
        });
        if (same == different.end()) {
            different.push_back({index, 1});
        } else {
            ++same->count;
        }
    }
    const Rule* deciding = nullptr;
    std::size_t widerThanDeciding = 0;
    for (const Alike& alike : different) {
        const auto givesWayTo = [&](const Alike& other) { return isNarrower(other.first, alike.first); };
        if (std::any_of(different.begin(), different.end(), givesWayTo)) continue;
        const Rule& rule = rules[alike.first];
        std::size_t wider = 0;
        for (const Alike& other : different) wider += isNarrower(alike.first, other.first) ? other.count : 0;
        const bool isStronger = deciding == nullptr || (deciding->allows && !rule.allows) ||
                                (deciding->allows == rule.allows && wider > widerThanDeciding);
        if (!isStronger) continue;
        deciding = &rule;
        widerThanDeciding = wider;
    }
    return deciding == nullptr ? Decision{isDefault} : Decision{deciding->allows, deciding->table};
}

Decision Policy::mayPublish(const Identity& who, std::string_view service, bool isDefault) const {
    std::vector<std::uint32_t> matching = rulesFor(who, service);
    std::erase_if(matching, [this](std::uint32_t index) { return !rules[index].concerns(publish); });
    return decide(matching, isDefault);
}

bool Policy::letsPublish(const Identity& who) const {
    return std::any_of(rules.begin(), rules.end(),
                       [&](const Rule& rule) { return rule.allows && rule.concerns(publish) && rule.subject.is(who); });
}

bool Policy::isAbout(const Identity& who, std::string_view service) const {
    return std::any_of(rules.begin(), rules.end(), [&](const Rule& rule) {
        return rule.command != publish && rule.subject.is(who) && rule.service.matches(service);
    });
}

std::string Policy::reasonOf(const Decision& decision) const {
    return decision.table == Decision::byDefault ? "no rule allows it" : tables[decision.table].toString();
}

}  // namespace kelo::policy
