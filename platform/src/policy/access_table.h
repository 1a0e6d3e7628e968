// What one peer may do at one service, ready to be looked up.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "policy/policy.h"

namespace kelo::policy {

// Thread: one at a time.
class AccessTable {
public:
    // `isDefault`: what holds where no rule matches.
    AccessTable(std::shared_ptr<const Policy> policy, const Identity& who, std::string_view service, bool isDefault);
    AccessTable(const AccessTable&) = delete;
    AccessTable& operator=(const AccessTable&) = delete;

    const Policy& policy() const noexcept { return *policy_; }
    // Whether the peer may do this. The first request of a kind takes longer than those after it.
    Decision decide(std::string_view command, std::string_view path);
    Decision decide(int command, std::string_view path);

private:
    // What is known when the parts of a path up to here have been read: the rules that can still match, and where each next part
    // leads.
    struct State {
        std::vector<std::uint32_t> rules;
        std::size_t depth = 0;
        bool isSettled = false;                            // whatever follows, the decision is the same
        bool namesIds = false;                             // some text in `next` is an id
        std::vector<std::pair<std::string, State*>> next;  // sorted by the part; null: not looked at yet
        State* other = nullptr;                            // any other part
        State* empty = nullptr;                            // the empty part
        std::optional<Decision> decision;                  // if the path ends here

        std::pair<std::string, State*>* find(std::string_view part) noexcept;
    };
    using Key = std::pair<std::size_t, std::vector<std::uint32_t>>;

    State* start(int command);
    State* follow(State& state, std::string_view part);
    State* follow(State*& next, const State& state, const Pattern::Part& part);
    State* make(std::size_t depth, std::vector<std::uint32_t> rules);
    Decision decideAt(State& state) const;
    void forget();

    const std::shared_ptr<const Policy> policy_;
    const bool isDefault_;
    std::vector<std::uint32_t> rules_;
    std::size_t longest_ = 0;                  // parts of a pattern
    std::array<State*, anyCommand> starts_{};  // by command
    std::map<Key, std::unique_ptr<State>> states_;
    std::size_t kept_ = 0;  // how much of the policy's rules the states hold
};

}  // namespace kelo::policy
