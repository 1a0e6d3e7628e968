#include "openapi.h"

#include <set>
#include <string_view>

#include "ascii.h"
#include "hmx/client/resources.h"
#include "json_text.h"
#include "media_types.h"
#include "problem.h"
#include "recordings.h"
#include "router.h"

namespace hmxgateway {
namespace {

using hmx::client::Description;
using hmx::client::MemberDescription;
using hmx::client::Resource;
using json::array;
using json::object;
using json::text;
using kelo::record::Kind;

std::string reference(std::string_view name) {
    return object({{"$ref", text("#/components/schemas/" + std::string{name})}});
}

std::string type(std::string_view name, std::string_view format = {}) {
    return object({{"type", text(name)}, {"format", format.empty() ? "" : text(format)}});
}

// Collects the schemas of what is referred to. Thread: one at a time.
class Schemas {
public:
    std::string of(const MemberDescription& member) {
        std::string one = ofOne(member);
        return member.isArray ? object({{"type", text("array")}, {"items", std::move(one)}}) : one;
    }

    std::string of(const Description& record) {
        if (made_.insert(record.name).second) {
            std::string properties{"{}"};
            std::vector<std::string> required;
            for (const MemberDescription& member : record.members) {
                json::append(properties, member.key, of(member));
                if (member.isRequired) required.push_back(text(member.key));
            }
            json::append(text_, record.name,
                         object({{"type", text("object")},
                                 {"properties", std::move(properties)},
                                 {"required", required.empty() ? "" : array(required)}}));
        }
        return reference(record.name);
    }

    std::string end() && {
        const std::string sent = object({{"type", text("string")}, {"enum", array({text("no"), text("unknown")})}});
        const std::string members = object({{"type", type("string")},
                                            {"title", type("string")},
                                            {"status", type("integer")},
                                            {"detail", type("string")},
                                            {"sent", sent}});
        json::append(text_, "Problem",
                     object({{"type", text("object")}, {"description", text("RFC 9457")}, {"properties", members}}));
        return std::move(text_);
    }

private:
    std::string ofOne(const MemberDescription& member) {
        switch (member.kind) {
            case Kind::integer:
                return type("integer", "int32");
            case Kind::boolean:
                return type("boolean");
            case Kind::floating:
                return type("number");
            case Kind::string:
                return type("string");
            case Kind::uuid:
                return type("string", "uuid");
            case Kind::url:
                return type("string", "uri-reference");
            case Kind::enumeration: {
                std::vector<std::string> names;
                for (const std::string_view name : member.enumValues) names.push_back(text(name));
                return object({{"type", text("string")}, {"enum", array(names)}});
            }
            case Kind::record:
                return of(member.nested());
        }
        return "{}";
    }

    std::string text_{"{}"};
    std::set<std::string_view> made_;
};

std::string problems() {
    const std::string content = object({{problemType, object({{"schema", reference("Problem")}})}});
    return object({{"description", text("Refused, with the reason")}, {"content", content}});
}

// The same document in each encoding, and as an event stream.
std::string documentAnswer(std::string_view description, const std::string& schema) {
    std::string content{"{}"};
    for (const MediaType& each : answerTypes()) {
        json::append(content, each.name, object({{"schema", each.mimeType.empty() ? type("string") : schema}}));
    }
    return object({{"description", text(description)}, {"content", content}});
}

std::string parameter(std::string_view where, std::string_view name, std::string schema, std::string_view description = {}) {
    return object({{"name", text(name)},
                   {"in", text(where)},
                   {"required", where == "path" ? "true" : ""},
                   {"schema", std::move(schema)},
                   {"description", description.empty() ? "" : text(description)},
                   {"explode", name == "fields" ? "false" : ""}});
}

std::string queryParameters(Schemas& schemas, const Resource& resource, bool element) {
    std::vector<std::string> parameters;
    for (const MemberDescription& member : parametersOf(resource)) {
        const bool isFields = member.key == "fields";
        if (member.kind == Kind::record || (member.isArray && !isFields) || (element && !isFields)) continue;
        parameters.push_back(parameter("query", member.key, schemas.of(member)));
    }
    return array(parameters);
}

std::string listSchema(const Resource& resource) {
    const std::string data = object({{"type", text("array")}, {"items", reference(resource.element().name)}});
    const std::string properties = object({{"previous", type("object")},
                                           {"next", type("object")},
                                           {"total", type("integer")},
                                           {"totalPages", type("integer")},
                                           {"offset", type("integer")},
                                           {"offsetId", type("string", "uuid")},
                                           {"data", data}});
    const std::string required = array({text("total"), text("totalPages"), text("data")});
    return object({{"type", text("object")}, {"properties", properties}, {"required", required}});
}

std::string operation(Schemas& schemas, const Resource& resource, const Method& method, bool element) {
    const kelo::hmx::Route& found = *findRoute(resource, method.command, element);
    std::string answers{"{}"};
    std::string parameters;
    if (method.command == kelo::commands::retrieve) {
        parameters = queryParameters(schemas, resource, element);
        const std::string schema = element ? schemas.of(resource.element()) : listSchema(resource);
        json::append(
            answers, "200",
            documentAnswer("The document as the bridge sends it; as an event stream, its state and every change", schema));
        json::append(answers, "304", object({{"description", text("Not modified")}}));
    } else {
        const bool isInsert = method.command == kelo::commands::insert;
        const bool isRemoval = method.command == kelo::commands::remove;
        json::append(answers, isInsert ? "201" : isRemoval ? "204" : "200", object({{"description", text("Done")}}));
    }
    json::append(answers, "default", problems());
    std::string body;
    if (found.body != nullptr) {
        const std::string content = object({{"application/json", object({{"schema", schemas.of(found.body())}})}});
        body = object({{"required", "true"}, {"content", content}});
    }
    return object({{"operationId", text(std::string{found.operation} + (method.name == "PUT" ? "Whole" : ""))},
                   {"tags", array({text(resource.name)})},
                   {"parameters", std::move(parameters)},
                   {"requestBody", std::move(body)},
                   {"responses", std::move(answers)}});
}

void addResource(Schemas& schemas, std::string& paths, const Resource& resource, bool changes) {
    (void)schemas.of(resource.element());
    for (const bool element : {false, true}) {
        std::string operations{"{}"};
        for (const Method& method : methods()) {
            if (!takes(resource, method, element) || (method.command != kelo::commands::retrieve && !changes)) continue;
            json::append(operations, lowered(method.name), operation(schemas, resource, method, element));
        }
        if (operations == "{}") continue;
        if (element) {
            const std::string form = "A UUID, or a name of the form " + std::string{resource.nameForm};
            json::append(operations, "parameters", array({parameter("path", "element", type("string"), form)}));
        }
        json::append(paths, "/hmx" + std::string{resource.path} + (element ? "/{element}" : ""), operations);
    }
}

// What is read from an upstream service itself.
std::string outsidePath(std::string_view operationId, std::string_view summary, std::string parameters) {
    const std::string answers = object(
        {{"200", documentAnswer("The state; as an event stream, every change, too", type("object"))}, {"default", problems()}});
    const std::string get =
        object({{"operationId", text(operationId)},
                {"summary", text(summary)},
                {"description", text("Not part of /hmx: read from the service that the header X-Source names.")},
                {"responses", answers}});
    return object({{"parameters", std::move(parameters)}, {"get", get}});
}

std::string recordingPath() {
    const std::string content = object({{recordingType, object({{"schema", type("string")}})}});
    const auto described = [&](std::string_view words) { return object({{"description", text(words)}, {"content", content}}); };
    const std::string answers = object({{"200", described("The recording, as far as it has been written")},
                                        {"206", described("The part of it that the Range header asks for")},
                                        {"304", object({{"description", text("Not modified")}})},
                                        {"default", problems()}});
    const std::string get = object({{"operationId", text("retrieveRecording")},
                                    {"summary", text("A recording: one JSON object in each line")},
                                    {"responses", answers}});
    return object(
        {{"parameters", array({parameter("path", "name", type("string"), "A name in the list of recordings")})}, {"get", get}});
}

std::string endpointPath(const EndpointForm& form) {
    std::string parameters;
    if (form.endpoint == Endpoint::events) {
        const std::string schema = object({{"type", text("array")}, {"items", type("string")}});
        std::string watch = parameter("query", "watch", schema, "A path to watch, percent-encoded; may be repeated");
        json::append(watch, "required", "true");
        parameters = array({watch});
    }
    const std::string content = object({{form.mediaType.substr(0, form.mediaType.find(';')), "{}"}});
    const std::string answers =
        object({{"200", object({{"description", text(form.summary)}, {"content", content}})}, {"default", problems()}});
    return object({{"get", object({{"operationId", text(form.name.substr(0, form.name.find('.')))},
                                   {"summary", text(form.summary)},
                                   {"parameters", std::move(parameters)},
                                   {"responses", answers}})}});
}

}  // namespace

std::string openApi(const Offered& offered, const std::string& version) {
    Schemas schemas;
    std::string paths{"{}"};
    for (const Resource& resource : hmx::client::resources()) addResource(schemas, paths, resource, offered.changes);
    json::append(paths, "/input/{display}",
                 outsidePath("retrieveInputSurface", "The touch surface of a display",
                             array({parameter("path", "display", type("string"), "A display's name")})));
    json::append(paths, "/output/displayables",
                 outsidePath("retrievePlacements", "On which layers each displayable is, and whether it is visible", ""));
    for (const EndpointForm& form : endpoints()) {
        if (form.endpoint == Endpoint::recordings && !offered.recordings) continue;
        json::append(paths, "/" + std::string{form.name}, endpointPath(form));
    }
    if (offered.recordings) json::append(paths, "/recordings/{name}", recordingPath());
    const std::string info =
        object({{"title", text("hmxgateway")}, {"version", text(version)}, {"summary", text("/hmx over HTTP")}});
    return object({{"openapi", text("3.1.0")},
                   {"info", info},
                   {"paths", std::move(paths)},
                   {"components", object({{"schemas", std::move(schemas).end()}})}});
}

}  // namespace hmxgateway
