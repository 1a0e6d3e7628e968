#include "resources.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

#include "bridge/display_conversion.h"
#include "bridge/popup_conversion.h"
#include "bridge/region_conversion.h"
#include "failure.h"
#include "hmx/displayables_service.h"
#include "hmx/displays_service.h"
#include "hmx/layerconfigurations_service.h"
#include "hmx/popups_service.h"
#include "hmx/regionconfigurations_service.h"
#include "kelo/uuid.h"
#include "suggest.h"

namespace hmxctl {
namespace {

using kelo::record::Kind;

// --- Cells -------------------------------------------------------------------------------------------------------------------

template <kelo::record::Key K>
Table::Cell cell(const Json& element) {
    return {shortText(member(element, {K.text, sizeof K.text - 1}))};
}

// A state that people look for: what holds stands out.
template <kelo::record::Key K>
Table::Cell state(const Json& element) {
    const Json& value = member(element, {K.text, sizeof K.text - 1});
    return {shortText(value), value == true ? Style::green : Style::dim};
}

Table::Cell layerNames(const Json& element) {
    std::vector<const Json*> layers;
    for (const Json& layer : member(element, "layers")) layers.push_back(&layer);
    const auto zpos = [](const Json& layer) {
        return member(layer, "zpos").is_number_integer() ? member(layer, "zpos").get<int>() : INT32_MIN;
    };
    std::stable_sort(layers.begin(), layers.end(), [&](const Json* a, const Json* b) { return zpos(*a) > zpos(*b); });
    std::vector<std::string> names;
    for (const Json* layer : layers) {
        const std::string name = text(*layer, "name");
        names.push_back(name.empty() ? "#" + compact(member(*layer, "id")) : name);
    }
    return {joined(names, " > ")};
}

Table::Cell layerCount(const Json& element) {
    const Json& layers = member(element, "layers");
    return {layers.is_array() ? std::to_string(layers.size()) : ""};
}

constexpr std::array displayColumns{ResourceColumn{"NAME", Align::left, cell<"name">},
                                    ResourceColumn{"ID", Align::right, cell<"displayID">},
                                    ResourceColumn{"INTERNAL", Align::right, cell<"displayInternalID">},
                                    ResourceColumn{"RESOLUTION", Align::right, cell<"resolution">},
                                    ResourceColumn{"CONNECTOR", Align::left, cell<"connector">},
                                    ResourceColumn{"TERMINAL", Align::right, cell<"terminal">},
                                    ResourceColumn{"TOUCH", Align::left, cell<"touchSupport">}};
constexpr std::array displayableColumns{
    ResourceColumn{"ID", Align::right, cell<"displayableID">}, ResourceColumn{"NAME", Align::left, cell<"name">},
    ResourceColumn{"SIZE", Align::right, cell<"size">}, ResourceColumn{"TYPE", Align::right, cell<"type">}};
constexpr std::array layerColumns{ResourceColumn{"DISPLAY", Align::left, cell<"name">},
                                  ResourceColumn{"LAYERS", Align::right, layerCount},
                                  ResourceColumn{"FROM TOP TO BOTTOM", Align::left, layerNames}};
constexpr std::array regionColumns{
    ResourceColumn{"NAME", Align::left, cell<"name">}, ResourceColumn{"DISPLAY", Align::left, cell<"display">},
    ResourceColumn{"HMI", Align::left, cell<"hmi">}, ResourceColumn{"SUBCOMPONENT", Align::left, cell<"subComponent">}};
constexpr std::array popupColumns{ResourceColumn{"DISPLAY", Align::left, cell<"display">},
                                  ResourceColumn{"NAME", Align::left, cell<"name">},
                                  ResourceColumn{"VISIBLE", Align::left, state<"visible">},
                                  ResourceColumn{"ACTIVE", Align::left, state<"active">},
                                  ResourceColumn{"REQUESTED", Align::left, state<"requested">},
                                  ResourceColumn{"SUPPRESSED", Align::left, cell<"suppressed">},
                                  ResourceColumn{"PRIORITY", Align::right, cell<"priorityInlayer">},
                                  ResourceColumn{"SLOT", Align::left, cell<"slot">},
                                  ResourceColumn{"LAYER", Align::left, cell<"popupLayerCompositing">}};

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
    return kelo::uuid::createFromName(
        hmx::popupIdName({std::string{name.substr(0, slash)}, std::string{name.substr(slash + 1)}}));
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
    displays.columns = displayColumns;
    displays.idOf = displayId;

    Resource displayables = resource<kelo::hmx::DisplayableObject, kelo::hmx::DisplayablesService>();
    displayables.nameForm = "NUMBER";
    displayables.nameFilter = "displayableID";
    displayables.columns = displayableColumns;
    displayables.idOf = displayableId;

    Resource layers = resource<kelo::hmx::LayerconfigurationObject, kelo::hmx::LayerconfigurationsService>();
    layers.nameForm = "DISPLAY";
    layers.nameFilter = "name";
    layers.columns = layerColumns;
    layers.idOf = layerId;

    Resource regions = resource<kelo::hmx::RegionconfigurationObject, kelo::hmx::RegionconfigurationsService>();
    regions.nameForm = "DISPLAY/HMI[/SUBCOMPONENT]";
    regions.columns = regionColumns;
    regions.uri = hmx::regionConfigurationUri;
    regions.idOf = regionId;

    Resource popups = resource<kelo::hmx::PopupObject, kelo::hmx::PopupsService>();
    popups.nameForm = "DISPLAY/NAME";
    popups.nameFilter = "name";
    popups.columns = popupColumns;
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

bool isWhole(const Json& value) {
    return value.is_number_integer() || value.is_null();
}

std::string numberText(const Json& value) {
    return value.is_null() ? "?" : compact(value);
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

const Resource& resourceNamed(std::string_view name, std::string_view verb) {
    if (const Resource* found = findResource(name)) return *found;
    const std::string meant = didYouMean(name, resourceNames());
    throw usageError(std::string{verb} + ": no resource '" + std::string{name} + "'",
                     meant.empty() ? "resources: " + joined(resourceNames()) : meant);
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
    if (name.empty() && resource.path == "/displayables") return shortText(member(element, "displayableID"));
    return name;
}

std::UUID idOfElement(const Json& element) {
    std::UUID id;
    (void)std::UUID::parse(text(element, "id"), id);
    return id;
}

std::string shortText(const Json& value) {
    if (value.is_null()) return {};
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    if (value.is_string()) return value.get<std::string>();
    if (value.empty()) return "none";
    if (value.is_array() && !value.empty() &&
        std::none_of(value.begin(), value.end(), [](const Json& each) { return each.is_structured(); })) {
        std::vector<std::string> items;
        for (const Json& each : value) items.push_back(shortText(each));
        return joined(items, ",");
    }
    if (value.is_object()) {
        // Sizes and points, in the keys of either side; each may lack one of its numbers.
        const auto pair = [&](std::string_view a, std::string_view b, const char* between) {
            const Json& first = member(value, a);
            const Json& second = member(value, b);
            const std::size_t present = (first.is_null() ? 0U : 1U) + (second.is_null() ? 0U : 1U);
            const bool fits = present > 0 && present == value.size() && isWhole(first) && isWhole(second);
            return fits ? numberText(first) + between + numberText(second) : std::string{};
        };
        for (std::string text : {pair("width", "height", "x"), pair("posX", "posY", ","), pair("x", "y", ",")}) {
            if (!text.empty()) return text;
        }
    }
    return compact(value);
}

}  // namespace hmxctl
