#include "openapi.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "ascii.h"
#include "hmx/client/resources.h"
#include "media_types.h"
#include "problem.h"
#include "router.h"

namespace hmxgateway {
namespace {

using Json = nlohmann::ordered_json;
using hmx::client::Description;
using hmx::client::MemberDescription;
using hmx::client::Resource;
using kelo::record::Kind;

Json reference(std::string_view name) {
    return {{"$ref", "#/components/schemas/" + std::string{name}}};
}

// Thread: one at a time.
class Builder {
public:
    Json& schemas() noexcept { return schemas_; }

    Json schemaOf(const MemberDescription& member) {
        Json one = schemaOfOne(member);
        return member.isArray ? Json{{"type", "array"}, {"items", std::move(one)}} : one;
    }

    Json recordReference(const Description& record) {
        const std::string name{record.name};
        if (!schemas_.contains(name)) {
            schemas_[name] = Json::object();  // so that it is not begun again below
            Json properties = Json::object();
            Json required = Json::array();
            for (const MemberDescription& member : record.members) {
                properties[std::string{member.key}] = schemaOf(member);
                if (member.isRequired) required.push_back(member.key);
            }
            Json schema{{"type", "object"}, {"properties", std::move(properties)}};
            if (!required.empty()) schema["required"] = std::move(required);
            schemas_[name] = std::move(schema);
        }
        return reference(record.name);
    }

private:
    Json schemaOfOne(const MemberDescription& member) {
        switch (member.kind) {
            case Kind::integer:
                return {{"type", "integer"}, {"format", "int32"}};
            case Kind::boolean:
                return {{"type", "boolean"}};
            case Kind::floating:
                return {{"type", "number"}};
            case Kind::string:
                return {{"type", "string"}};
            case Kind::uuid:
                return {{"type", "string"}, {"format", "uuid"}};
            case Kind::url:
                return {{"type", "string"}, {"format", "uri-reference"}};
            case Kind::enumeration:
                return {{"type", "string"}, {"enum", member.enumValues}};
            case Kind::record:
                return recordReference(member.nested());
        }
        return Json::object();
    }

    Json schemas_ = Json::object();
};

Json problems() {
    return {{"description", "Refused, with the reason"}, {"content", {{problemType, {{"schema", reference("Problem")}}}}}};
}

// The same document in each encoding, and as an event stream.
Json answerContent(const Json& schema) {
    Json content = Json::object();
    for (const MediaType& type : answerTypes()) {
        const bool isStream = type.mimeType.empty();
        content[std::string{type.name}] = {{"schema", isStream ? Json{{"type", "string"}} : schema}};
    }
    return content;
}

Json parameterIn(std::string_view where, std::string_view name, Json schema, std::string_view description) {
    Json parameter{{"name", name}, {"in", where}, {"schema", std::move(schema)}};
    if (where == "path") parameter["required"] = true;
    if (!description.empty()) parameter["description"] = description;
    return parameter;
}

Json queryParameters(Builder& builder, const Resource& resource, bool element) {
    Json parameters = Json::array();
    for (const MemberDescription& member : parametersOf(resource)) {
        if (member.kind == Kind::record || (member.isArray && member.key != "fields")) continue;
        if (element && member.key != "fields") continue;
        Json parameter = parameterIn("query", member.key, builder.schemaOf(member), "");
        if (member.isArray) parameter["style"] = "form", parameter["explode"] = false;
        parameters.push_back(std::move(parameter));
    }
    return parameters;
}

Json listSchema(const Resource& resource) {
    return {{"type", "object"},
            {"properties",
             {{"previous", {{"type", "object"}}},
              {"next", {{"type", "object"}}},
              {"total", {{"type", "integer"}}},
              {"totalPages", {{"type", "integer"}}},
              {"offset", {{"type", "integer"}}},
              {"offsetId", {{"type", "string"}, {"format", "uuid"}}},
              {"data", {{"type", "array"}, {"items", reference(resource.element().name)}}}}},
            {"required", {"total", "totalPages", "data"}}};
}

Json operation(Builder& builder, const Resource& resource, const Method& method, bool element) {
    const kelo::hmx::Route& found = *findRoute(resource, method.command, element);
    Json made{{"operationId", std::string{found.operation} + (method.name == "PUT" ? "Whole" : "")}, {"tags", {resource.name}}};
    Json answers = Json::object();
    if (method.command == kelo::commands::retrieve) {
        made["parameters"] = queryParameters(builder, resource, element);
        const Json schema = element ? builder.recordReference(resource.element()) : listSchema(resource);
        answers["200"] = {{"description", "The document as the bridge sends it; as an event stream, its state and every change"},
                          {"content", answerContent(schema)}};
        answers["304"] = {{"description", "Not modified"}};
    } else {
        const char* status = method.command == kelo::commands::insert   ? "201"
                             : method.command == kelo::commands::remove ? "204"
                                                                        : "200";
        answers[status] = {{"description", "Done"}};
    }
    if (found.body != nullptr) {
        made["requestBody"] = {{"required", true},
                               {"content", {{"application/json", {{"schema", builder.recordReference(found.body())}}}}}};
    }
    answers["default"] = problems();
    made["responses"] = std::move(answers);
    return made;
}

void addResource(Builder& builder, Json& paths, const Resource& resource, bool changes) {
    (void)builder.recordReference(resource.element());
    for (const bool element : {false, true}) {
        Json operations = Json::object();
        for (const Method& method : methods()) {
            if (method.command != kelo::commands::retrieve && !changes) continue;
            if (takes(resource, method, element))
                operations[lowered(method.name)] = operation(builder, resource, method, element);
        }
        if (operations.empty()) continue;
        if (element) {
            const std::string description = "A UUID, or a name of the form " + std::string{resource.nameForm};
            operations["parameters"] = Json::array({parameterIn("path", "element", {{"type", "string"}}, description)});
        }
        paths["/hmx" + std::string{resource.path} + (element ? "/{element}" : "")] = std::move(operations);
    }
}

Json endpointOperation(const EndpointForm& form) {
    Json made{{"operationId", form.name == "openapi.json" ? "openapi" : std::string{form.name}}, {"summary", form.summary}};
    if (form.endpoint == Endpoint::events) {
        const Json watches{{"type", "array"}, {"items", {{"type", "string"}}}};
        Json watch = parameterIn("query", "watch", watches, "A path to watch, percent-encoded; may be repeated");
        watch["required"] = true;
        made["parameters"] = Json::array({std::move(watch)});
    }
    const std::string type{form.mediaType.substr(0, form.mediaType.find(';'))};
    made["responses"] = {{"200", {{"description", form.summary}, {"content", {{type, Json::object()}}}}},
                         {"default", problems()}};
    return made;
}

}  // namespace

std::string openApi(bool changes, const std::string& version) {
    Builder builder;
    builder.schemas()["Problem"] = {{"type", "object"},
                                    {"description", "RFC 9457"},
                                    {"properties",
                                     {{"type", {{"type", "string"}}},
                                      {"title", {{"type", "string"}}},
                                      {"status", {{"type", "integer"}}},
                                      {"detail", {{"type", "string"}}},
                                      {"sent", {{"type", "string"}, {"enum", {"no", "unknown"}}}}}}};
    Json paths = Json::object();
    for (const Resource& resource : hmx::client::resources()) addResource(builder, paths, resource, changes);
    paths["/input/{display}"] = {
        {"parameters", Json::array({parameterIn("path", "display", {{"type", "string"}}, "A display's name")})},
        {"get",
         {{"operationId", "retrieveInputSurface"},
          {"summary", "The touch surface of a display"},
          {"description", "Not part of /hmx: read from the input manager itself, as the header X-Source says."},
          {"responses",
           {{"200",
             {{"description", "The surface; as an event stream, its state and every change"},
              {"content", answerContent({{"type", "object"}})}}},
            {"default", problems()}}}}}};
    for (const EndpointForm& form : endpoints()) paths["/" + std::string{form.name}] = {{"get", endpointOperation(form)}};
    const Json document{{"openapi", "3.1.0"},
                        {"info", {{"title", "hmxgateway"}, {"version", version}, {"summary", "/hmx over HTTP"}}},
                        {"paths", std::move(paths)},
                        {"components", {{"schemas", std::move(builder.schemas())}}}};
    return document.dump(2);
}

}  // namespace hmxgateway
