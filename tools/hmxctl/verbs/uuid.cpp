// `uuid`: ids and URIs by the rules of the resources, without asking a service.

#include "kelo/uuid.h"
#include "hmx/client/elements.h"
#include "render.h"
#include "targets.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

Json computed(std::string_view word) {
    const Target target = parseElement(word, "uuid");
    const Resource& resource = *target.resource;
    std::UUID id;
    const std::optional<std::UUID> named = resource.idOf(target.element);
    if (named) id = *named;
    if (!named && !std::UUID::parse(target.element, id)) {
        throw usageError("uuid " + target.text() + ": not a name of that resource",
                         std::string{resource.name} + "/" + std::string{resource.nameForm});
    }
    return Json{
        {"resource", resource.name}, {"name", target.element}, {"id", id.toString()}, {"uri", resource.uri(id).toString()}};
}

}  // namespace

ExitCode runUuid(Context& context) {
    const Arguments& arguments = context.arguments;
    if (arguments.words.empty() == !arguments.name.has_value()) {
        throw usageError("uuid: either RESOURCE/NAME or --name TEXT", "for example hmxctl uuid displays/Driver_Display");
    }
    if (arguments.uriOnly && (arguments.idOnly || arguments.name)) throw usageError("uuid: --uri goes without --id and --name");
    std::vector<Json> results;
    for (const std::string& word : arguments.words) results.push_back(computed(word));
    if (arguments.name) {
        results.push_back(Json{{"name", *arguments.name}, {"id", kelo::uuid::createFromName(*arguments.name).toString()}});
    }
    const bool asText = arguments.format == Format::table || arguments.format == Format::raw;
    if (arguments.idOnly || arguments.uriOnly) {
        for (Json& result : results) result = member(result, arguments.idOnly ? "id" : "uri");
        if (asText) {
            for (const Json& result : results) context.out.line(result.get<std::string>());
            return ExitCode::ok;
        }
    }
    if (results.size() == 1 && arguments.format != Format::jsonl) {
        printDocument(context, results.front());
    } else {
        printDocument(context, Json(results));
    }
    return ExitCode::ok;
}

}  // namespace hmxctl
