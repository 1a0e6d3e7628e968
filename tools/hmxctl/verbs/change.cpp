// `insert`, `update` and `delete`. Bodies are checked here before they are sent, where the path of a bad field can be named in
// the words that were typed.

#include "hmx/client/elements.h"
#include "hmx/client/suggest.h"
#include "parameters.h"
#include "render.h"
#include "targets.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

// The route of a command, which not every resource has.
const kelo::hmx::Route& routeFor(const Resource& resource, kelo::commands::Id command, bool element) {
    if (const kelo::hmx::Route* route = findRoute(resource, command, element)) return *route;
    std::vector<std::string> names;
    for (const Resource& each : resources()) {
        if (findRoute(each, command, element) != nullptr) names.emplace_back(each.name);
    }
    throw usageError("the service takes no " + std::string{kelo::commands::toName(command)} + " of " + std::string{resource.name},
                     "these do: " + joined(names));
}

Json checkedBody(const Context& context, const kelo::hmx::Route& route) {
    const Description& record = route.body();
    Json body = requestBody(context, 1, record.members);
    if (body.is_null()) {
        throw usageError(context.action() + ": no body given",
                         "KEY=VALUE, KEY:=JSON or -f FILE; keys: " + joined(keysOf(record.members)));
    }
    if (context.arguments.validate) checkBody(body, record, context.action());
    return body;
}

}  // namespace

ExitCode runInsert(Context& context) {
    const Target target = parseTarget(context.arguments.words.front(), "insert");
    const kelo::hmx::Route& route = routeFor(*target.resource, kelo::commands::insert, false);
    if (!target.element.empty()) {
        throw usageError("insert: the service names the new element itself",
                         "hmxctl insert " + std::string{target.resource->name} + " ...");
    }
    const Json body = checkedBody(context, route);
    const Service service = context.service(hmxService);
    printAnswer(context, context.wait(service.request({"insert", std::string{route.path}, body}, context.deadline)));
    return ExitCode::ok;
}

ExitCode runUpdate(Context& context) {
    const Target target = parseElement(context.arguments.words.front(), "update");
    const Json body = checkedBody(context, routeFor(*target.resource, kelo::commands::update, true));
    Elements elements{context.client, context.deadline};
    const std::UUID id = context.wait(elements.find(target));
    printAnswer(context, context.wait(elements.request("update", *target.resource, id, body)));
    return ExitCode::ok;
}

ExitCode runDelete(Context& context) {
    const Target target = parseElement(context.arguments.words.front(), "delete");
    (void)routeFor(*target.resource, kelo::commands::remove, true);
    const Json parameters = elementParameters(context, *target.resource).parameters;
    Elements elements{context.client, context.deadline};
    const std::UUID id = context.wait(elements.find(target));
    printAnswer(context, context.wait(elements.request("delete", *target.resource, id, parameters)));
    return ExitCode::ok;
}

}  // namespace hmxctl
