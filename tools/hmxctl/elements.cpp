#include "elements.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "suggest.h"

namespace hmxctl {
namespace {

// The digits of an id's beginning, hyphens aside; "" when the text is none, or too short to be meant as one.
std::string idPrefix(std::string_view text) {
    std::string digits;
    for (const char c : text) {
        if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')) {
            digits += c;
        } else if (c >= 'A' && c <= 'F') {
            digits += static_cast<char>(c - 'A' + 'a');
        } else if (c != '-') {
            return {};
        }
    }
    return digits.size() < 4 ? std::string{} : digits;
}

bool beginsWith(const std::UUID& id, const std::string& digits) {
    std::string text = id.toString();
    text.erase(std::remove(text.begin(), text.end(), '-'), text.end());
    return text.compare(0, digits.size(), digits) == 0;
}

// A few names, or how to see the many.
std::string whatThereIs(const Resource& resource, std::vector<std::string> names) {
    constexpr std::size_t few = 8;
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    names.erase(std::remove(names.begin(), names.end(), ""), names.end());
    if (names.empty() || names.size() > few) return "`hmxctl list " + std::string{resource.name} + "` shows what there is";
    return "there are: " + joined(names);
}

Json withKey(Json parameters, const std::string& key, const Json& value) {
    if (parameters.is_null()) parameters = Json::object();
    parameters[key] = value;
    return parameters;
}

}  // namespace

std::string Target::text() const {
    return std::string{resource->name} + (element.empty() ? "" : "/" + element);
}

Target parseTarget(std::string_view word, std::string_view verb) {
    // A URI as the service writes it names its element as well as the short form does.
    std::string_view rest = word;
    if (rest.starts_with('/')) rest.remove_prefix(1);
    if (rest.starts_with("hmx/")) rest.remove_prefix(4);
    const std::size_t slash = std::min(rest.find('/'), rest.size());
    Target target;
    target.resource = &resourceNamed(rest.substr(0, slash), verb);
    if (slash < rest.size()) target.element = rest.substr(slash + 1);
    if (slash < rest.size() && target.element.empty()) {
        throw usageError(std::string{verb} + " " + std::string{word} + ": which element?",
                         "for example " + std::string{target.resource->name} + "/" + std::string{target.resource->nameForm});
    }
    return target;
}

Target parseElement(std::string_view word, std::string_view verb) {
    Target target = parseTarget(word, verb);
    if (!target.element.empty()) return target;
    const std::string name{target.resource->name};
    throw usageError(
        std::string{verb} + " " + name + ": which element? " + name + "/UUID or " + name + "/" +
            std::string{target.resource->nameForm},
        isListable(*target.resource) ? "`hmxctl list " + name + "` shows them" : "`hmxctl tree` shows touch regions");
}

std::vector<Json> elementsOf(const Json& document) {
    const Json& data = member(document, "data");
    if (!data.is_array()) return {document};
    return {data.begin(), data.end()};
}

std::vector<Query> Elements::listQueries(const Resource& resource, const Json& parameters) {
    const std::string path{resource.path};
    if (!isListable(resource)) {
        throw usageError("the service shows " + std::string{resource.name} + " one by one only",
                         "get " + std::string{resource.name} + "/" + std::string{resource.nameForm} +
                             "; `hmxctl tree` shows the touch regions of all displays");
    }
    if (resource.path != "/popups" || !member(parameters, "display").is_null()) return {{"retrieve", path, parameters}};
    for (const char* key : {"limit", "offset", "offsetId"}) {
        if (!member(parameters, key).is_null()) {
            throw usageError(std::string{key} + ": the pages of popups go by display", "add display=NAME");
        }
    }
    std::vector<Query> queries;
    for (const std::string& display : displayNames()) {
        queries.push_back({"retrieve", path, withKey(parameters, "display", display)});
    }
    return queries;
}

std::vector<Json> Elements::list(const Resource& resource, const Json& parameters) {
    const std::vector<Query> queries = listQueries(resource, parameters);
    std::vector<Json> elements;
    for (const Query& query : queries) {
        // Of several displays one may be unknown where popups are managed: it has none.
        const std::optional<Answer> answer = queries.size() > 1 ? hmx_.find(query, deadline_) : hmx_.request(query, deadline_);
        if (!answer) continue;
        for (Json& element : elementsOf(decode(answer->payload))) elements.push_back(std::move(element));
    }
    return elements;
}

const std::vector<std::string>& Elements::displayNames() {
    if (!displayNames_) {
        std::vector<std::string> names;
        for (const Json& display : list(resourceNamed("displays", ""), nullptr)) names.push_back(text(display, "name"));
        displayNames_ = std::move(names);
    }
    return *displayNames_;
}

std::string Elements::nameOf(const Resource& resource, const Json& element) {
    if (resource.path != "/layerconfigurations") return nameOfElement(resource, element);
    const std::UUID id = idOfElement(element);
    for (const std::string& display : displayNames()) {
        if (resource.idOf(display) == id) return display;
    }
    return {};
}

std::optional<std::UUID> Elements::findByName(const Target& target, const std::string& display) {
    const Resource& resource = *target.resource;
    std::string name = target.element;
    if (!display.empty() && name.rfind(display + "/", 0) != 0) name = display + "/" + name;
    const std::optional<std::UUID> id = resource.idOf(name);
    if (!id || !isListable(resource)) return id;

    Json parameters = Json::object();
    if (resource.path == "/popups") {
        const std::size_t slash = name.find('/');
        parameters["display"] = name.substr(0, slash);
        name = name.substr(slash + 1);
    }
    const std::string filter{resource.nameFilter};
    parameters[filter] = name;
    int number = 0;
    if (findMember(resource.element().members, filter)->kind == kelo::record::Kind::integer) {
        if (std::from_chars(name.data(), name.data() + name.size(), number).ec != std::errc{}) return {};
        parameters[filter] = number;
    }
    const std::optional<Answer> answer = hmx_.find({"retrieve", std::string{resource.path}, parameters}, deadline_);
    if (!answer) return {};
    const std::vector<Json> elements = elementsOf(decode(answer->payload));
    const bool found =
        std::any_of(elements.begin(), elements.end(), [&](const Json& element) { return idOfElement(element) == *id; });
    return found ? id : std::optional<std::UUID>{};
}

std::UUID Elements::findInLists(const Target& target) {
    const Resource& resource = *target.resource;
    const std::string digits = idPrefix(target.element);
    std::map<std::UUID, std::string> named;
    std::map<std::UUID, std::string> prefixed;
    std::vector<std::string> names;
    for (const Json& element : list(resource, nullptr)) {
        const std::UUID id = idOfElement(element);
        const std::string name = nameOf(resource, element);
        names.push_back(name);
        names.push_back(text(element, "name"));
        if (name == target.element || text(element, "name") == target.element) named.emplace(id, name);
        if (!digits.empty() && beginsWith(id, digits)) prefixed.emplace(id, name);
    }
    const auto& matching = named.empty() ? prefixed : named;
    if (matching.size() == 1) return matching.begin()->first;
    if (matching.empty()) {
        // What stands before a slash is the display's name, of which all have one: only what is behind it tells names apart.
        const std::string shared = target.element.substr(0, target.element.rfind('/') + 1);
        for (std::string& name : names) {
            if (name.rfind(shared, 0) == 0) name.erase(0, shared.size());
        }
        std::string hint = didYouMean(target.element.substr(shared.size()), names);
        if (hint.empty()) hint = whatThereIs(resource, names);
        throw Failure{ExitCode::notFound, target.text() + ": there is no such element at " + hmx_.path(), hint};
    }
    std::vector<std::string> candidates;
    candidates.reserve(matching.size());
    for (const auto& [id, name] : matching) candidates.push_back((name.empty() ? "" : name + " ") + id.toString());
    throw usageError(target.text() + ": fits " + std::to_string(matching.size()) + " elements", joined(candidates));
}

std::UUID Elements::find(const Target& target, const std::string& display) {
    const Resource& resource = *target.resource;
    std::UUID id;
    if (std::UUID::parse(target.element, id)) return id;
    if (const std::optional<std::UUID> named = findByName(target, display)) return *named;
    if (!isListable(resource)) {
        throw usageError(target.text() + ": not the name of one of the " + std::string{resource.name},
                         "a UUID or " + std::string{resource.nameForm} +
                             "; a beginning of a UUID cannot be completed, since the "
                             "service does not list these");
    }
    return findInLists(target);
}

Answer Elements::request(std::string_view command, const Resource& resource, const std::UUID& id, const Json& body) {
    const Query query{std::string{command}, elementPath(resource, id), body};
    if (std::optional<Answer> answer = hmx_.find(query, deadline_)) return *answer;
    if (isListable(resource)) {
        const std::vector<Json> listed = list(resource, nullptr);
        if (std::optional<Answer> answer = hmx_.find(query, deadline_)) return *answer;
        if (std::any_of(listed.begin(), listed.end(), [&](const Json& each) { return idOfElement(each) == id; })) {
            throw Failure{
                ExitCode::notFound,
                describeQuery(query, hmx_.path()) + ": it is in the list, but its upstream service does not know its name",
                "`hmxctl list " + std::string{resource.name} + "` shows it; an element without a name cannot be asked for", 404};
        }
    }
    throw Failure{ExitCode::notFound, describeQuery(query, hmx_.path()) + ": there is no such element",
                  isListable(resource)
                      ? "`hmxctl list " + std::string{resource.name} + "` shows what there is"
                      : "the bridge knows only what was inserted since it started; `hmxctl tree` shows all touch regions",
                  404};
}

}  // namespace hmxctl
