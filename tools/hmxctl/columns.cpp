#include "columns.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "hmx/client/suggest.h"
#include "kelo/record.h"

namespace hmxctl {
namespace {

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

constexpr std::array<std::pair<std::string_view, std::span<const ResourceColumn>>, 5> tables{
    {{"displays", displayColumns},
     {"displayables", displayableColumns},
     {"layerconfigurations", layerColumns},
     {"regionconfigurations", regionColumns},
     {"popups", popupColumns}}};

bool isWhole(const Json& value) {
    return value.is_number_integer() || value.is_null();
}

std::string numberText(const Json& value) {
    return value.is_null() ? "?" : compact(value);
}

}  // namespace

std::span<const ResourceColumn> columnsOf(const Resource& resource) {
    for (const auto& [name, columns] : tables) {
        if (name == resource.name) return columns;
    }
    return {};
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
