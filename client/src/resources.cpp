#include "hmx/client/resources.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

#include "hmx/client/suggest.h"
#include "hmx/displayables_service.h"
#include "hmx/displays_service.h"
#include "hmx/element_ids.h"
#include "hmx/layerconfigurations_service.h"
#include "hmx/popups_service.h"
#include "hmx/regionconfigurations_service.h"
#include "kelo/uuid.h"

namespace hmx::client {
namespace {

using kelo::record::Kind;

// --- Names to ids ------------------------------------------------------------------------------------------------------------

using Id = std::optional<std::UUID>;

Id displayId(std::string_view name) {
    return kelo::uuid::createFromName(hmx::displayIdName(std::string{name}));
}

Id layerId(std::string_view name) {
    return kelo::uuid::createFromName(hmx::layersIdName(std::string{name}));
}

// Only a number names a displayable; its "name" is a text of its own.
Id displayableId(std::string_view name) {
    int number = 0;
    const auto end = std::from_chars(name.data(), name.data() + name.size(), number);
    if (end.ec != std::errc{} || end.ptr != name.data() + name.size()) return {};
    return kelo::uuid::createFromName(hmx::displayableIdName(number));
}

Id popupId(std::string_view name) {
    const std::size_t slash = name.find('/');
    if (slash == std::string_view::npos || slash == 0 || slash + 1 == name.size()) return {};
    return kelo::uuid::createFromName(hmx::popupIdName(name.substr(0, slash), name.substr(slash + 1)));
}

// "DISPLAY/HMI[/SUBCOMPONENT]", or the name that the service makes of the three. One HMI's name begins like another's, so the
// longest that fits is meant.
Id regionId(std::string_view name) {
    using Display = kelo::hmx::RegionconfigurationObjectDisplayEnum;
    using Hmi = kelo::hmx::RegionconfigurationObjectHmiEnum;
    constexpr auto displays = enumNames(Display{});
    constexpr auto hmis = enumNames(Hmi{});
    std::size_t longest = 0;
    Id id;
    for (std::size_t display = 0; display < displays.size(); ++display) {
        for (std::size_t hmi = 0; hmi < hmis.size(); ++hmi) {
            const std::string slashed = std::string{displays[display]} + "/" + std::string{hmis[hmi]};
            const hmx::RegionAddress bare{static_cast<Display>(display), static_cast<Hmi>(hmi), {}};
            kelo::optional<std::string> component;
            if (const std::string composed = hmx::regionConfigurationName(bare); name.starts_with(composed)) {
                component = std::string{name.substr(composed.size())};
            } else if (name.starts_with(slashed + "/")) {
                component = std::string{name.substr(slashed.size() + 1)};
            } else if (name != slashed) {
                continue;
            }
            if (hmis[hmi].size() <= longest) continue;
            longest = hmis[hmi].size();
            id = hmx::regionConfigurationId({static_cast<Display>(display), static_cast<Hmi>(hmi), component});
        }
    }
    return id;
}

// --- The resources -----------------------------------------------------------------------------------------------------------

template <class Element, class Service>
constexpr Resource resource() {
    Resource made{};
    made.path = Element::resourcePath;
    made.name = made.path.substr(1);
    made.element = kelo::record::describe<Element>;
    made.routes = Service::routes;
    made.uri = Element::elementUri;
    return made;
}

constexpr std::array<Resource, 5> table = [] {
    Resource displays = resource<kelo::hmx::DisplayObject, kelo::hmx::DisplaysService>();
    displays.nameForm = "NAME";
    displays.nameFilter = "name";
    displays.idOf = displayId;

    Resource displayables = resource<kelo::hmx::DisplayableObject, kelo::hmx::DisplayablesService>();
    displayables.nameForm = "NUMBER";
    displayables.nameFilter = "displayableID";
    displayables.idOf = displayableId;

    Resource layers = resource<kelo::hmx::LayerconfigurationObject, kelo::hmx::LayerconfigurationsService>();
    layers.nameForm = "DISPLAY";
    layers.nameFilter = "name";
    layers.idOf = layerId;

    Resource regions = resource<kelo::hmx::RegionconfigurationObject, kelo::hmx::RegionconfigurationsService>();
    regions.nameForm = "DISPLAY/HMI[/SUBCOMPONENT]";
    regions.uri = hmx::regionConfigurationUri;
    regions.idOf = regionId;

    Resource popups = resource<kelo::hmx::PopupObject, kelo::hmx::PopupsService>();
    popups.nameForm = "DISPLAY/NAME";
    popups.nameFilter = "name";
    popups.idOf = popupId;
    return std::array<Resource, 5>{displays, displayables, layers, regions, popups};
}();

std::vector<MemberDescription> withPaging(Members members) {
    static constexpr std::array paging{
        MemberDescription{.key = "fields", .kind = Kind::string, .isArray = true, .typeName = "string", .enumValues = {}},
        MemberDescription{.key = "limit", .kind = Kind::integer, .typeName = "int", .enumValues = {}},
        MemberDescription{.key = "offset", .kind = Kind::integer, .typeName = "int", .enumValues = {}},
        MemberDescription{.key = "offsetId", .kind = Kind::uuid, .typeName = "uuid", .enumValues = {}},
    };
    std::vector<MemberDescription> all(members.begin(), members.end());
    for (MemberDescription& member : all) member.isRequired = false;
    all.insert(all.end(), paging.begin(), paging.end());
    return all;
}

}  // namespace

const kelo::hmx::Route* findRoute(const Resource& resource, kelo::commands::Id command, bool element) noexcept {
    for (const kelo::hmx::Route& route : resource.routes()) {
        if (route.command == command && route.isForElement == element) return &route;
    }
    return nullptr;
}

std::span<const Resource> resources() noexcept {
    return table;
}

std::vector<std::string> resourceNames() {
    std::vector<std::string> names;
    names.reserve(std::size(table));
    for (const Resource& resource : table) names.emplace_back(resource.name);
    return names;
}

const Resource* findResource(std::string_view name) noexcept {
    const auto* found = std::find_if(table.begin(), table.end(), [=](const Resource& each) { return each.name == name; });
    return found == table.end() ? nullptr : found;
}

const Resource& resourceNamed(std::string_view name) {
    if (const Resource* found = findResource(name)) return *found;
    const std::string meant = didYouMean(name, resourceNames());
    throw Error{Error::Kind::invalid, "no resource '" + std::string{name} + "'",
                meant.empty() ? "resources: " + joined(resourceNames()) : meant};
}

std::string Target::text() const {
    return std::string{resource->name} + (element.empty() ? "" : "/" + element);
}

TargetWords splitTarget(std::string_view word) noexcept {
    // A URI as the service writes it names its element as well as the short form does.
    std::string_view rest = word;
    if (rest.starts_with('/')) rest.remove_prefix(1);
    if (rest.starts_with("hmx/")) rest.remove_prefix(4);
    const std::size_t slash = rest.find('/');
    if (slash == std::string_view::npos) return {rest};
    return {rest.substr(0, slash), rest.substr(slash + 1)};
}

Target parseTarget(std::string_view word) {
    const TargetWords words = splitTarget(word);
    Target target{&resourceNamed(words.resource), std::string{words.element.value_or("")}};
    if (words.element && target.element.empty()) {
        throw Error{Error::Kind::invalid, std::string{word} + ": which element?",
                    "for example " + std::string{target.resource->name} + "/" + std::string{target.resource->nameForm}};
    }
    return target;
}

Members parametersOf(const Resource& resource) {
    static std::array<std::vector<MemberDescription>, table.size()> made;
    std::vector<MemberDescription>& parameters = made.at(static_cast<std::size_t>(&resource - table.data()));
    if (parameters.empty()) parameters = withPaging(resource.element().members);
    return parameters;
}

std::string elementPath(const Resource& resource, const std::UUID& id) {
    return std::string{resource.path} + "/" + id.toString();
}

std::string nameOfElement(const Resource& resource, const Json& element) {
    std::string name = text(element, "name");
    if (resource.path == "/popups" && !text(element, "display").empty()) return text(element, "display") + "/" + name;
    if (name.empty() && resource.path == "/displayables") {
        const Json& number = member(element, "displayableID");
        return number.is_null() ? "" : compact(number);
    }
    return name;
}

std::UUID idOfElement(const Json& element) {
    std::UUID id;
    (void)std::UUID::parse(text(element, "id"), id);
    return id;
}

}  // namespace hmx::client
