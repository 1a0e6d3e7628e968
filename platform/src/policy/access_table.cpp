#include "policy/access_table.h"

#include <algorithm>

#include "kelo/std/uuid.h"

// A policy may have thousands of rules, and a request must not pay for them. So the patterns of all rules about a peer are read
// at once, part by part: a state is the set of rules that still match, and each part of a path leads from one state to the next.
// What the rules of the last state decide is worked out once and kept there. A request then costs one look-up for each part that
// a rule names, and nothing for the rest.
//
// States are made when a request first needs them. Their number depends on the policy, not on what clients ask: every part that
// no rule names leads to the same state. If a policy is such that there would be very many, all are forgotten and made again.

namespace kelo::policy {
namespace {

constexpr std::size_t mostKept = 1U << 16U;  // rules in all states together

// Whether it is an id with capital letters.
bool isOtherSpelling(std::string_view part) noexcept {
    std::UUID id;
    if (!std::UUID::parse(part, id)) return false;
    std::array<char, std::UUID::textLength> text;
    id.toChars(text.data());
    return part != std::string_view{text.data(), text.size()};
}

}  // namespace

std::pair<std::string, AccessTable::State*>* AccessTable::State::find(std::string_view part) noexcept {
    const auto found = std::lower_bound(next.begin(), next.end(), part,
                                        [](const auto& entry, std::string_view wanted) { return entry.first < wanted; });
    return found == next.end() || found->first != part ? nullptr : &*found;
}

AccessTable::AccessTable(std::shared_ptr<const Policy> policy, const Identity& who, std::string_view service, bool isDefault)
    : policy_{std::move(policy)}, isDefault_{isDefault}, rules_{policy_->rulesFor(who, service)} {
    std::erase_if(rules_, [this](std::uint32_t index) { return policy_->rules[index].command == publish; });
    for (const std::uint32_t index : rules_) longest_ = std::max(longest_, policy_->rules[index].path.parts().size());
}

Decision AccessTable::decide(std::string_view command, std::string_view path) {
    return decide(commands::toId(command), path);
}

Decision AccessTable::decide(int command, std::string_view path) {
    if (kept_ > mostKept) forget();
    State* state = start(command);
    for (std::string_view part; !state->isSettled && takePart(path, part);) state = follow(*state, part);
    if (!state->decision) state->decision = decideAt(*state);
    return *state->decision;
}

AccessTable::State* AccessTable::start(int command) {
    State*& state = starts_.at(static_cast<std::size_t>(command));
    if (state != nullptr) return state;
    std::vector<std::uint32_t> rules;
    for (const std::uint32_t index : rules_) {
        if (policy_->rules[index].concerns(command)) rules.push_back(index);
    }
    return state = make(0, std::move(rules));
}

AccessTable::State* AccessTable::follow(State& state, std::string_view part) {
    if (part.empty()) return state.empty != nullptr ? state.empty : follow(state.empty, state, {false, {}});
    if (!state.next.empty()) {
        auto* entry = part.find('%') == std::string_view::npos ? state.find(part) : state.find(canonical(part));
        if (entry == nullptr && state.namesIds && isOtherSpelling(part)) entry = state.find(canonical(part));
        if (entry != nullptr) {
            return entry->second != nullptr ? entry->second : follow(entry->second, state, {false, entry->first});
        }
    }
    if (state.other != nullptr) return state.other;
    // A part that no rule names: it is compared as one that is not empty and equals nothing.
    return follow(state.other, state, {true, {}});
}

AccessTable::State* AccessTable::follow(State*& next, const State& state, const Pattern::Part& part) {
    std::vector<std::uint32_t> rules;
    for (const std::uint32_t index : state.rules) {
        const Pattern& pattern = policy_->rules[index].path;
        const bool matches = state.depth < pattern.parts().size() ? pattern.parts()[state.depth].covers(part) : pattern.isOpen();
        if (matches) rules.push_back(index);
    }
    // Beyond the longest pattern, one part is like another.
    return next = make(std::min(state.depth + 1, longest_), std::move(rules));
}

AccessTable::State* AccessTable::make(std::size_t depth, std::vector<std::uint32_t> rules) {
    const auto [entry, isNew] = states_.try_emplace({depth, rules});
    if (!isNew) return entry->second.get();
    entry->second = std::make_unique<State>();
    kept_ += rules.size() + 1;
    State& state = *entry->second;
    state.depth = depth;
    state.isSettled = true;
    for (const std::uint32_t index : rules) {
        const Pattern& pattern = policy_->rules[index].path;
        state.isSettled = state.isSettled && pattern.isOpen() && depth >= pattern.parts().size();
        if (depth >= pattern.parts().size() || pattern.parts()[depth].isAny || pattern.parts()[depth].text.empty()) continue;
        state.next.emplace_back(pattern.parts()[depth].text, nullptr);
        state.namesIds = state.namesIds || state.next.back().first.size() == std::UUID::textLength;
    }
    std::sort(state.next.begin(), state.next.end());
    state.next.erase(std::unique(state.next.begin(), state.next.end()), state.next.end());
    state.rules = std::move(rules);
    return &state;
}

Decision AccessTable::decideAt(State& state) const {
    std::vector<std::uint32_t> matching = state.rules;
    std::erase_if(matching, [&](std::uint32_t index) {
        const Pattern& pattern = policy_->rules[index].path;
        return pattern.parts().size() > state.depth || (pattern.parts().size() < state.depth && !pattern.isOpen());
    });
    return policy_->decide(matching, isDefault_);
}

void AccessTable::forget() {
    starts_.fill(nullptr);
    kept_ = 0;
    states_.clear();
}

}  // namespace kelo::policy
