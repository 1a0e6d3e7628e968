// Any bytes as a policy: the text of a file and, after the first zero byte, a path that is asked for. What is read has no faults
// or names their lines; what a pattern says can be read again; and the table that requests are looked up in decides as the rules
// do.
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "policy/access_table.h"
#include "policy/policy_file.h"
#include "walk.h"

namespace {

using namespace kelo::policy;

constexpr std::size_t mostRules = 64;  // whose decisions are compared; more take too long

Identity memberOf(const Subject& subject) {
    if (subject.kind == Subject::Kind::group) return {1, 2, {subject.id}};
    return {subject.kind == Subject::Kind::user ? subject.id : 1, 2, {3}};
}

// A path that the pattern matches.
std::string pathIn(const Pattern& pattern) {
    std::string path = pattern.toString();
    for (std::size_t star = path.find('*'); star != std::string::npos; star = path.find('*')) {
        path.replace(star, path.find_first_not_of('*', star) - star, "x");
    }
    return path;
}

void requirePattern(const Pattern& pattern) {
    std::string why;
    const auto again = Pattern::parse(pattern.toString(), why);
    fuzz::require(again && again->parts() == pattern.parts() && again->isOpen() == pattern.isOpen(),
                  "what a pattern says is that pattern");
    fuzz::require(pattern.matches(pathIn(pattern)), "a pattern matches what it was filled in with");
    fuzz::require(pattern.isWithin(pattern) && pattern.isWithin(Pattern{}), "a pattern is within itself and within all");
}

void requireSameDecision(AccessTable& table, const Policy& policy, const Identity& who, std::string_view service, int command,
                         const std::string& path) {
    std::vector<std::uint32_t> matching = policy.rulesFor(who, service);
    std::erase_if(matching, [&](std::uint32_t index) {
        return !policy.rules[index].concerns(command) || !policy.rules[index].path.matches(path);
    });
    const Decision expected = policy.decide(matching, false);
    for (int i = 0; i < 2; ++i) {  // worked out, and looked up
        const Decision decision = table.decide(command, path);
        fuzz::require(decision.allowed == expected.allowed && decision.table == expected.table,
                      "the table decides as the rules do");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view all{reinterpret_cast<const char*>(data), size};
    const std::size_t end = std::min(all.find('\0'), size);
    const std::string asked{all.substr(std::min(end + 1, size))};

    Draft draft;
    readPolicyFile("p", all.substr(0, end), draft);
    const auto lines = std::count(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(end), '\n') + 1;
    for (const Fault& fault : draft.faults) {
        fuzz::require(fault.place.line >= 1 && fault.place.line <= lines && !fault.text.empty(), "a fault has a line and a text");
    }
    if (!draft.faults.empty()) return 0;
    const auto policy = std::make_shared<const Policy>(std::move(draft.policy));
    if (policy->rules.size() > mostRules) return 0;
    for (const Rule& rule : policy->rules) {
        requirePattern(rule.service);
        requirePattern(rule.path);
        fuzz::require(rule.isWithin(rule) && rule.table < policy->tables.size(), "a rule is within itself, and in a table");
        const Identity who = memberOf(rule.subject);
        const std::string service = pathIn(rule.service);
        const auto found = policy->rulesFor(who, service);
        const auto index = static_cast<std::uint32_t>(&rule - policy->rules.data());
        fuzz::require(std::find(found.begin(), found.end(), index) != found.end(), "a rule is about whom and what it names");
        AccessTable table{policy, who, service, false};
        const int command = rule.command < kelo::commands::unknown ? rule.command : kelo::commands::update;
        requireSameDecision(table, *policy, who, service, command, pathIn(rule.path));
        requireSameDecision(table, *policy, who, service, command, asked);
    }
    return 0;
}
