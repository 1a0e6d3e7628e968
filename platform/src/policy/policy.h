// A policy: who may publish what, and who may do what at whose service.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kelo/commands.h"
#include "policy/identity.h"
#include "policy/pattern.h"

namespace kelo::policy {

// What a rule is about: one of `commands::Id`, or one of these.
inline constexpr int publish = commands::unknown + 1;
inline constexpr int anyCommand = commands::unknown + 2;  // not `publish`

// Where something is written. Thread: any (a value).
struct Place {
    std::string file;
    unsigned line = 0;  // 0: of the file as a whole

    std::string toString() const { return line == 0 ? file : file + ":" + std::to_string(line); }
};

// Whom a rule is about. Thread: any (a value).
struct Subject {
    enum class Kind : std::uint8_t { everybody, group, user };
    Kind kind = Kind::everybody;
    std::uint32_t id = 0;

    bool is(const Identity& who) const noexcept;
    // Whether it is about nobody whom the other one is not about, as far as can be told without asking who belongs to a group.
    bool isWithin(const Subject& other) const noexcept;
};

// One subject, one service, one command or all, one path. A table of a file is as many rules as it has combinations of these.
// Thread: any (a value).
struct Rule {
    bool allows = false;
    Subject subject;
    Pattern service;
    int command = anyCommand;
    Pattern path;
    std::uint32_t table = 0;  // the one that it was made from

    bool concerns(int wanted) const noexcept { return command == wanted || (command == anyCommand && wanted != publish); }
    // Whether it matches nothing that the other one does not match.
    bool isWithin(const Rule& other) const noexcept;
};

// The answer to a question, and the rule that gave it. Thread: any (a value).
struct Decision {
    static constexpr std::uint32_t byDefault = ~std::uint32_t{0};

    bool allowed = false;
    std::uint32_t table = byDefault;  // of the deciding rule
};

// Never changes. Thread: any (a value).
struct Policy {
    bool isInForce = false;  // false: there is none
    bool audits = false;     // what it refuses is logged, and passes
    std::vector<Rule> rules;
    std::vector<Place> tables;

    // The rules about one peer at one service, as indices.
    std::vector<std::uint32_t> rulesFor(const Identity& who, std::string_view service) const;
    // What rules that all match decide among themselves. `isDefault`: what is true if there are none.
    Decision decide(std::span<const std::uint32_t> matching, bool isDefault) const;
    // Whether the peer may publish the path. `isDefault` as above.
    Decision mayPublish(const Identity& who, std::string_view service, bool isDefault) const;
    // Whether a rule lets the peer publish anything at all.
    bool letsPublish(const Identity& who) const;
    // Whether a rule is about requests of the peer at the service.
    bool isAbout(const Identity& who, std::string_view service) const;
    // "/etc/kelo/policy.d/10-apps.toml:12"; "no rule allows it".
    std::string reasonOf(const Decision& decision) const;
};

}  // namespace kelo::policy
