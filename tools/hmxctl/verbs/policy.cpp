// `policy`: what the files of a policy say, and what they decide.

#include "kelo/runtime/policy_view.h"

#include <unistd.h>

#include "hmx/client/suggest.h"
#include "kelo/runtime/domain_view.h"
#include "render.h"
#include "table.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

using kelo::runtime::PolicyView;

std::string whoText(const PolicyView::Rule& rule) {
    std::vector<std::string> all;
    for (const std::string& user : rule.users) all.push_back(user == "*" ? "everybody" : user);
    for (const std::string& group : rule.groups) all.push_back("group " + group);
    return joined(all);
}

Json asJson(const PolicyView& view) {
    Json rules = Json::array();
    for (const PolicyView::Rule& rule : view.rules) {
        Json& json = rules.emplace_back(Json{{"rule", rule.place}, {"effect", rule.allows ? "allow" : "deny"}});
        if (!rule.users.empty()) json["user"] = rule.users;
        if (!rule.groups.empty()) json["group"] = rule.groups;
        json[rule.publishes ? "publish" : "service"] = rule.services;
        if (rule.publishes) continue;
        json["command"] = rule.commands;
        json["path"] = rule.paths;
    }
    return Json{{"directory", view.directory},
                {"inForce", view.isInForce},
                {"audit", view.audits},
                {"rules", std::move(rules)},
                {"faults", view.faults}};
}

ExitCode check(Context& context, const kelo::runtime::RuntimeOptions& options) {
    const PolicyView view = kelo::runtime::viewPolicy(options);
    const ExitCode code = view.faults.empty() ? ExitCode::ok : ExitCode::differences;
    if (context.arguments.format != Format::table) {
        printDocument(context, asJson(view));
        return code;
    }
    printLines(context.out, view.faults);
    Table table{{{"RULE"}, {"EFFECT"}, {"WHO"}, {"SERVICE"}, {"COMMAND"}, {"PATH"}}};
    for (const PolicyView::Rule& rule : view.rules) {
        table.addRow({{rule.place},
                      {rule.allows ? "allow" : "deny", rule.allows ? Style::green : Style::red},
                      {whoText(rule)},
                      {joined(rule.services)},
                      {rule.publishes ? "publish" : joined(rule.commands)},
                      {joined(rule.paths)}});
    }
    if (!view.rules.empty()) printLines(context.out, table.lines(context.out.colour()));
    if (!view.faults.empty()) {
        context.note("the policy in " + view.directory + " has faults, so all of it is refused");
    } else if (!view.isInForce) {
        context.note("there is no policy in " + view.directory + ": a service serves its own user and root");
    } else if (view.audits) {
        context.note("the policy only audits: what it refuses is logged, and passes");
    }
    return code;
}

ExitCode test(Context& context, const kelo::runtime::RuntimeOptions& options) {
    const std::vector<std::string>& words = context.arguments.words;
    const bool publishes = words[2] == "publish";
    const std::string service = publishes ? words[3] : context.arguments.service;
    kelo::runtime::RuntimeOptions place = options;
    place.domain =
        context.arguments.domain.empty() ? kelo::runtime::domainName(kelo::runtime::usualDomain) : context.arguments.domain;
    if (!context.arguments.runtimeDirectory.empty()) place.directory = context.arguments.runtimeDirectory + "/" + place.domain;
    const PolicyView view = kelo::runtime::viewPolicy(options);
    if (!view.faults.empty())
        throw Failure{ExitCode::unexpected, view.faults.front(), "`hmxctl policy check` shows what is wrong"};
    const auto owner = kelo::runtime::socketOwner(place, service);
    const auto answer = kelo::runtime::askPolicy(options, {.user = words[1],
                                                           .service = service,
                                                           .command = words[2],
                                                           .path = publishes ? "" : words[3],
                                                           .provider = owner.value_or(::geteuid())});
    if (!answer) {
        throw usageError("there is no user '" + words[1] + "', or no command '" + words[2] + "'",
                         "commands: retrieve, insert, update, delete, publish");
    }
    if (context.arguments.format != Format::table) {
        printDocument(context, Json{{"allowed", answer->isAllowed},
                                    {"rule", answer->rule.empty() ? Json(nullptr) : Json(answer->rule)},
                                    {"audit", view.audits}});
    } else {
        const std::string byDefault = answer->isAllowed ? "no rule; the service's own user and root" : "no rule allows it";
        context.out.line(std::string{answer->isAllowed ? "allowed" : "forbidden"} + ": " +
                         (answer->rule.empty() ? byDefault : answer->rule));
    }
    if (view.audits && !answer->isAllowed) context.note("the policy only audits: this is logged, and passes");
    return answer->isAllowed ? ExitCode::ok : ExitCode::notPermitted;
}

}  // namespace

ExitCode runPolicy(Context& context) {
    const std::vector<std::string>& words = context.arguments.words;
    kelo::runtime::RuntimeOptions options;
    if (words[0] == "check" && words.size() <= 2) {
        if (words.size() == 2) options.policyDirectory = words[1];
        return check(context, options);
    }
    if (words[0] == "test" && words.size() == 4) return test(context, options);
    throw usageError("policy takes check [DIRECTORY], or test USER COMMAND PATH");
}

}  // namespace hmxctl
