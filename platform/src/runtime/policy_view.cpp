#include "kelo/runtime/policy_view.h"

#include <algorithm>
#include <charconv>

#include "policy/access_table.h"
#include "policy/policy_reader.h"

// A table of a file has become many rules; here they are put together again. Tools must not answer by a policy that no process
// would follow, so what they ask goes through the same table as a request.

namespace kelo::runtime {
namespace {

void addOnce(std::vector<std::string>& texts, std::string text) {
    if (std::find(texts.begin(), texts.end(), text) == texts.end()) texts.push_back(std::move(text));
}

std::optional<uid_t> userNamed(const std::string& text) {
    if (const auto found = policy::findUser(text)) return found;
    uid_t uid = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), uid);
    return end.ec == std::errc{} && end.ptr == text.data() + text.size() ? std::optional{uid} : std::nullopt;
}

}  // namespace

PolicyView viewPolicy(const RuntimeOptions& options) {
    PolicyView view;
    view.directory = policy::policyDirectory(options.policyDirectory);
    const policy::Reading reading = policy::readPolicy(view.directory);
    for (const policy::Fault& fault : reading.faults) view.faults.push_back(fault.toString());
    if (!reading.policy) return view;
    view.isInForce = reading.policy->isInForce;
    view.audits = reading.policy->audits;
    for (const policy::Place& place : reading.policy->tables) view.rules.emplace_back().place = place.toString();
    for (const policy::Rule& rule : reading.policy->rules) {
        PolicyView::Rule& said = view.rules.at(rule.table);
        said.allows = rule.allows;
        said.publishes = rule.command == policy::publish;
        switch (rule.subject.kind) {
            case policy::Subject::Kind::everybody:
                addOnce(said.users, "*");
                break;
            case policy::Subject::Kind::user:
                addOnce(said.users, policy::userText(rule.subject.id));
                break;
            case policy::Subject::Kind::group:
                addOnce(said.groups, policy::groupText(rule.subject.id));
                break;
        }
        addOnce(said.services, rule.service.toString());
        if (said.publishes) continue;
        addOnce(said.commands, rule.command == policy::anyCommand ? "*" : std::string{commands::toName(rule.command)});
        addOnce(said.paths, rule.path.toString());
    }
    return view;
}

std::optional<PolicyAnswer> askPolicy(const RuntimeOptions& options, const PolicyQuestion& question) {
    const auto uid = userNamed(question.user);
    const bool isPublishing = question.command == "publish";
    if (!uid || (!isPublishing && commands::toId(question.command) == commands::unknown)) return {};
    const policy::Reading reading = policy::readPolicy(policy::policyDirectory(options.policyDirectory));
    const auto current = reading.policy ? reading.policy : std::make_shared<const policy::Policy>();
    const policy::Identity who = policy::identityOf(*uid);
    const bool isDefault = *uid == question.provider || *uid == 0;
    const policy::Decision decision =
        isPublishing ? current->mayPublish(who, question.service, isDefault)
                     : policy::AccessTable{current, who, question.service, isDefault}.decide(question.command, question.path);
    return PolicyAnswer{decision.allowed, decision.table == policy::Decision::byDefault ? "" : current->reasonOf(decision)};
}

}  // namespace kelo::runtime
