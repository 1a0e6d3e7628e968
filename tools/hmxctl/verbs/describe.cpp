// `describe`: what the records' tables and the services' routes contain, for people or as a document.

#include <set>

#include "context.h"
#include "hmx/client/elements.h"
#include "hmx/client/suggest.h"
#include "render.h"
#include "table.h"
#include "targets.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

using kelo::hmx::Route;
using kelo::record::Kind;

Json asJson(Members members);

Json asJson(const MemberDescription& member) {
    Json json{{"key", member.key}, {"type", kelo::record::typeText(member)}, {"required", member.isRequired}};
    if (!member.enumValues.empty()) json["values"] = member.enumValues;
    if (member.kind == Kind::record) json["members"] = asJson(member.nested().members);
    return json;
}

Json asJson(Members members) {
    Json json = Json::array();
    for (const MemberDescription& member : members) json.push_back(asJson(member));
    return json;
}

Json asJson(const Resource& resource, const Route& route) {
    Json json{{"command", kelo::commands::toName(route.command)}, {"path", route.path}, {"operation", route.operation}};
    if (route.command == kelo::commands::retrieve) json["parameters"] = asJson(parametersOf(resource));
    if (route.body != nullptr) json["body"] = Json{{"record", route.body().name}, {"members", asJson(route.body().members)}};
    json["result"] = route.resultType;
    return json;
}

Json asJson(const Resource& resource) {
    Json commands = Json::array();
    for (const Route& route : resource.routes()) commands.push_back(asJson(resource, route));
    return Json{
        {"resource", resource.name},
        {"service", hmxService},
        {"path", resource.path},
        {"element",
         {{"record", resource.element().name}, {"name", resource.nameForm}, {"members", asJson(resource.element().members)}}},
        {"commands", commands}};
}

// The records that were shown already; each is shown once.
using Shown = std::set<std::string_view>;

// One line for each member, nested ones indented below theirs.
void addMembers(Table& table, Members members, const std::string& indent, Shown& shown) {
    for (const MemberDescription& member : members) {
        const std::vector<std::string> values(member.enumValues.begin(), member.enumValues.end());
        table.addRow(
            {{indent + std::string{member.key}},
             {kelo::record::typeText(member)},
             {member.isRequired ? "always" : "optional", member.isRequired ? Style::plain : Style::dim},
             {member.kind == Kind::record && shown.contains(member.nested().name) ? "see above" : joined(values, " | ")}});
        if (member.kind == Kind::record && shown.insert(member.nested().name).second) {
            addMembers(table, member.nested().members, indent + "  ", shown);
        }
    }
}

void printMembers(Context& context, const std::string& title, const Description& record, Shown& shown) {
    Output& out = context.out;
    const bool isNew = shown.insert(record.name).second;
    out.line("");
    out.line(styled(title, Style::bold, out.colour()) + (isNew ? "" : ", see above"));
    if (!isNew) return;
    Table table{{{"MEMBER"}, {"TYPE"}, {"PRESENT"}, {"VALUES"}}};
    addMembers(table, record.members, "", shown);
    for (const std::string& line : table.lines(out.colour())) out.line("  " + line);
}

Table commandsTable(std::span<const Resource> some) {
    Table table{{{"RESOURCE"}, {"COMMAND"}, {"PATH"}, {"BODY"}, {"RESULT"}}};
    for (const Resource& resource : some) {
        for (const Route& route : resource.routes()) {
            table.addRow({{std::string{resource.name}},
                          {std::string{kelo::commands::toName(route.command)}},
                          {std::string{route.path}},
                          {route.body == nullptr ? "" : std::string{route.body().name}},
                          {std::string{route.resultType}}});
        }
    }
    return table;
}

void print(Context& context, const Resource& resource) {
    Output& out = context.out;
    out.line(styled(resource.name, Style::bold, out.colour()) + "  at " + std::string{hmxService} + std::string{resource.path} +
             ", elements by UUID or " + std::string{resource.nameForm});
    out.line("");
    printLines(out, commandsTable({&resource, 1}).lines(out.colour()));
    Shown shown;
    printMembers(context, "element " + std::string{resource.element().name}, resource.element(), shown);
    for (const Route& route : resource.routes()) {
        if (route.body == nullptr) continue;
        printMembers(context,
                     "body of " + std::string{kelo::commands::toName(route.command)} + ": " + std::string{route.body().name},
                     route.body(), shown);
    }
    out.line("");
    out.line(styled("parameters of retrieve", Style::bold, out.colour()));
    out.line(
        isListable(resource)
            ? "  any member that is no object or array, which then has to be equal; fields=a,b, limit=N, offset=N, offsetId=UUID"
            : "  fields=a,b");
    if (resource.path == "/popups") out.line("  display=NAME is needed; hmxctl asks for each display in turn without it");
}

}  // namespace

ExitCode runDescribe(Context& context) {
    const std::vector<std::string>& words = context.arguments.words;
    const bool table = context.arguments.format == Format::table;
    if (words.empty()) {
        if (table) {
            printLines(context.out, commandsTable(resources()).lines(context.out.colour()));
        } else {
            Json all = Json::array();
            for (const Resource& resource : resources()) all.push_back(asJson(resource));
            printDocument(context, all);
        }
        return ExitCode::ok;
    }
    const Target target = parseTarget(words.front(), "describe");
    if (!target.element.empty()) throw usageError("describe shows resources, not elements", "hmxctl get " + target.text());
    if (table) {
        print(context, *target.resource);
    } else {
        printDocument(context, asJson(*target.resource));
    }
    return ExitCode::ok;
}

}  // namespace hmxctl
