#include "hmx/client/elements.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "hmx/client/suggest.h"

namespace hmx::client {
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

// A few names; "" where there are none, or many.
std::string whatThereIs(std::vector<std::string> names) {
    constexpr std::size_t few = 8;
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    names.erase(std::remove(names.begin(), names.end(), ""), names.end());
    return names.empty() || names.size() > few ? "" : "there are: " + joined(names);
}

Json withKey(Json parameters, const std::string& key, const Json& value) {
    if (parameters.is_null()) parameters = Json::object();
    parameters[key] = value;
    return parameters;
}

bool holds(const std::vector<Json>& elements, const std::UUID& id) {
    return std::any_of(elements.begin(), elements.end(), [&](const Json& element) { return idOfElement(element) == id; });
}

// A request for one element, by whatever name it goes.
Task<Answer> change(Client& client, std::string command, std::string target, Json body) {
    Elements elements{client, client.deadline()};
    const Target named = parseTarget(target);
    if (named.element.empty()) throw Error{Error::Kind::invalid, target + ": which element?"};
    const std::UUID id = co_await elements.find(named);
    co_return co_await elements.request(std::move(command), *named.resource, id, std::move(body));
}

}  // namespace

std::vector<Json> elementsOf(const Json& document) {
    const Json& data = member(document, "data");
    if (!data.is_array()) return {document};
    return {data.begin(), data.end()};
}

Task<const Service*> Elements::service() {
    if (!hmx_) hmx_.emplace(co_await client_.service(std::string{hmxService}, deadline_));
    co_return &*hmx_;
}

Task<std::vector<Query>> Elements::listQueries(const Resource& resource, Json parameters) {
    (void)co_await service();
    const std::string path{resource.path};
    if (!isListable(resource)) {
        throw Error{Error::Kind::invalid,
                    "the service shows " + std::string{resource.name} + " one by one only",
                    {.resource = resource.name}};
    }
    std::vector<Query> queries;
    if (resource.path != "/popups" || !member(parameters, "display").is_null()) {
        queries.emplace_back("retrieve", path, std::move(parameters));
        co_return queries;
    }
    for (const char* key : {"limit", "offset", "offsetId"}) {
        if (!member(parameters, key).is_null()) {
            throw Error{Error::Kind::invalid, std::string{key} + ": the pages of popups go by display", "add display=NAME"};
        }
    }
    const std::vector<std::string> displays = co_await displayNames();
    for (const std::string& display : displays) {
        queries.emplace_back("retrieve", path, withKey(parameters, "display", display));
    }
    co_return queries;
}

Task<std::vector<Answer>> Elements::pages(const Resource& resource, Json parameters) {
    const std::vector<Query> queries = co_await listQueries(resource, std::move(parameters));
    std::vector<Answer> answers;
    for (const Query& query : queries) {
        if (queries.size() == 1) {
            answers.push_back(co_await hmx_->request(query, deadline_));
            continue;
        }
        // Of several displays one may be unknown where popups are managed: it has none.
        std::optional<Answer> answer = co_await hmx_->find(query, deadline_);
        if (answer) answers.push_back(std::move(*answer));
    }
    co_return answers;
}

Task<std::vector<Json>> Elements::list(const Resource& resource, Json parameters) {
    const std::vector<Answer> answers = co_await pages(resource, std::move(parameters));
    std::vector<Json> elements;
    for (const Answer& answer : answers) {
        for (Json& element : elementsOf(decode(answer.payload))) elements.push_back(std::move(element));
    }
    co_return elements;
}

Task<std::vector<std::string>> Elements::displayNames() {
    if (!displayNames_) {
        const std::vector<Json> displays = co_await list(resourceNamed("displays"), nullptr);
        std::vector<std::string> names;
        names.reserve(displays.size());
        for (const Json& display : displays) names.push_back(text(display, "name"));
        displayNames_ = std::move(names);
    }
    co_return *displayNames_;
}

Task<std::string> Elements::nameOf(const Resource& resource, Json element) {
    if (resource.path != "/layerconfigurations") co_return nameOfElement(resource, element);
    const std::UUID id = idOfElement(element);
    const std::vector<std::string> displays = co_await displayNames();
    for (const std::string& display : displays) {
        if (resource.idOf(display) == id) co_return display;
    }
    co_return std::string{};
}

Task<std::optional<std::UUID>> Elements::findByName(Target target, std::string display) {
    const Resource& resource = *target.resource;
    std::string name = target.element;
    if (!display.empty() && name.rfind(display + "/", 0) != 0) name = display + "/" + name;
    const std::optional<std::UUID> id = resource.idOf(name);
    if (!id || !isListable(resource)) co_return id;

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
        if (std::from_chars(name.data(), name.data() + name.size(), number).ec != std::errc{}) co_return std::nullopt;
        parameters[filter] = number;
    }
    Query query{"retrieve", std::string{resource.path}, std::move(parameters)};
    const std::optional<Answer> answer = co_await hmx_->find(std::move(query), deadline_);
    if (!answer || !holds(elementsOf(decode(answer->payload)), *id)) co_return std::nullopt;
    co_return id;
}

Task<std::UUID> Elements::findInLists(Target target) {
    const Resource& resource = *target.resource;
    const std::string digits = idPrefix(target.element);
    std::map<std::UUID, std::string> named;
    std::map<std::UUID, std::string> prefixed;
    std::vector<std::string> names;
    const std::vector<Json> elements = co_await list(resource, nullptr);
    for (const Json& element : elements) {
        const std::UUID id = idOfElement(element);
        const std::string name = co_await nameOf(resource, element);
        names.push_back(name);
        names.push_back(text(element, "name"));
        if (name == target.element || text(element, "name") == target.element) named.emplace(id, name);
        if (!digits.empty() && beginsWith(id, digits)) prefixed.emplace(id, name);
    }
    const auto& matching = named.empty() ? prefixed : named;
    if (matching.size() == 1) co_return matching.begin()->first;
    if (matching.empty()) {
        // What stands before a slash is the display's name, of which all have one: only what comes after it tells names apart.
        const std::string shared = target.element.substr(0, target.element.rfind('/') + 1);
        for (std::string& name : names) {
            if (name.rfind(shared, 0) == 0) name.erase(0, shared.size());
        }
        const std::vector<std::string> near = nearMatches(target.element.substr(shared.size()), names);
        throw Error{Error::Kind::noElement,
                    target.text() + ": there is no such element at " + hmx_->path(),
                    {.service = hmx_->path(),
                     .hint = near.empty() ? whatThereIs(names) : didYouMean(target.element.substr(shared.size()), names),
                     .resource = resource.name,
                     .names = near}};
    }
    std::vector<std::string> candidates;
    candidates.reserve(matching.size());
    for (const auto& [id, name] : matching) candidates.push_back((name.empty() ? "" : name + " ") + id.toString());
    throw Error{Error::Kind::ambiguous,
                target.text() + ": fits " + std::to_string(matching.size()) + " elements",
                {.service = hmx_->path(), .hint = joined(candidates), .resource = resource.name, .names = candidates}};
}

Task<std::UUID> Elements::find(Target target, std::string display) {
    (void)co_await service();
    const Resource& resource = *target.resource;
    std::UUID id;
    if (std::UUID::parse(target.element, id)) co_return id;
    const std::optional<std::UUID> named = co_await findByName(target, std::move(display));
    if (named) co_return *named;
    if (!isListable(resource)) {
        throw Error{Error::Kind::invalid,
                    target.text() + ": not the name of one of the " + std::string{resource.name},
                    {.hint = "a UUID or " + std::string{resource.nameForm} +
                             "; a beginning of a UUID cannot be completed, since the service does not list these",
                     .resource = resource.name}};
    }
    co_return co_await findInLists(std::move(target));
}

Task<Answer> Elements::request(std::string command, const Resource& resource, std::UUID id, Json body) {
    (void)co_await service();
    const Query query{std::move(command), elementPath(resource, id), std::move(body)};
    std::optional<Answer> answer = co_await hmx_->find(query, deadline_);
    if (answer) co_return std::move(*answer);
    Error::Kind kind = Error::Kind::noElement;
    std::string what = ": there is no such element";
    if (isListable(resource)) {
        const std::vector<Json> listed = co_await list(resource, nullptr);
        answer = co_await hmx_->find(query, deadline_);
        if (answer) co_return std::move(*answer);
        if (holds(listed, id)) {
            kind = Error::Kind::nameless;
            what = ": it is in the list, but its upstream service does not know its name";
        }
    }
    const std::string tried = hmx_->describe(query);
    throw Error{kind,
                tried + what,
                {.tried = tried, .service = hmx_->path(), .status = 404, .sent = Sent::answered, .resource = resource.name}};
}

Task<Answer> retrieve(Client& client, std::string target, Json parameters) {
    return change(client, "retrieve", std::move(target), std::move(parameters));
}

Task<Answer> update(Client& client, std::string target, Json body) {
    return change(client, "update", std::move(target), std::move(body));
}

Task<Answer> remove(Client& client, std::string target) {
    return change(client, "delete", std::move(target), nullptr);
}

Task<Answer> insert(Client& client, std::string resource, Json body) {
    const Resource& named = resourceNamed(resource);
    const Deadline deadline = client.deadline();
    const Service hmx = co_await client.service(std::string{hmxService}, deadline);
    co_return co_await hmx.request({"insert", std::string{named.path}, std::move(body)}, deadline);
}

}  // namespace hmx::client
