#include "tree.h"

#include <algorithm>
#include <climits>

#include "columns.h"
#include "hmx/client/input_regions.h"
#include "hmx/client/resources.h"
#include "text.h"

namespace hmxctl {
namespace {

int numberOr(const Json& object, std::string_view key, int otherwise) {
    const Json& value = member(object, key);
    return value.is_number_integer() ? value.get<int>() : otherwise;
}

// The entry of `scene` that takes what names one of these layers: the layer, or the scene itself.
Json& placeOf(Json& scene, std::initializer_list<std::string> layerNames) {
    Json& layers = scene["layers"];
    for (const std::string& name : layerNames) {
        const Json* found = findLayer(layers, name);
        if (found != nullptr) return layers[static_cast<std::size_t>(found - &layers.front())];
    }
    return scene;
}

void put(Json& place, const char* key, Json child) {
    Json& children = place[key];
    if (children.is_null()) children = Json::array();
    children.push_back(std::move(child));
}

std::string shortId(const Json& element) {
    return text(element, "id").substr(0, 8);
}

// Draws lines with their branches. Thread: one at a time.
class Drawing {
public:
    Drawing(std::vector<std::string>& lines, bool colour) : lines_{lines}, colour_{colour} {}

    void display(const Json& scene) {
        std::string label = styled(printable(text(scene, "name")), Style::bold, colour_);
        add(label, shortText(member(scene, "resolution")));
        if (member(scene, "touchSupport") == true) add(label, "touch");
        add(label, shortId(scene), Style::dim);
        lines_.push_back(label);
        const Json& layers = member(scene, "layers");
        const std::size_t loose = member(scene, "popups").size() + member(scene, "regions").size();
        for (std::size_t i = 0; i < layers.size(); ++i) layer(layers[i], i + 1 == layers.size() && loose == 0);
        children(scene, "", true);
    }

private:
    void add(std::string& label, const std::string& part, Style style = Style::plain) const {
        if (!part.empty()) label += "  " + styled(printable(part), style, colour_);
    }

    void branch(const std::string& before, bool last, const std::string& label) {
        lines_.push_back(before + (last ? "└─ " : "├─ ") + label);
    }

    void layer(const Json& layer, bool last) {
        const Json& zpos = member(layer, "zpos");
        const std::string name = text(layer, "name");
        const std::string number = member(layer, "id").is_null() ? "" : "#" + compact(member(layer, "id"));
        std::string label = styled("layer " + printable(name.empty() ? number : name), Style::cyan, colour_);
        add(label, zpos.is_null() ? "no z" : "z " + compact(zpos));
        if (!name.empty()) add(label, number, Style::dim);
        if (member(layer, "active") == false) add(label, "inactive", Style::yellow);
        branch("", last, label);
        children(layer, last ? "   " : "│  ", false);
    }

    void children(const Json& place, const std::string& before, bool loose) {
        const Json& popups = member(place, "popups");
        const Json& regions = member(place, "regions");
        for (std::size_t i = 0; i < popups.size(); ++i) {
            branch(before, i + 1 == popups.size() && regions.empty(), popup(popups[i]));
        }
        for (std::size_t i = 0; i < regions.size(); ++i) branch(before, i + 1 == regions.size(), region(regions[i], loose));
    }

    // The members of `keys` that are true, each by its own name.
    void addFlags(std::string& label, const Json& object, std::initializer_list<const char*> keys) const {
        for (const char* key : keys) {
            const bool good = std::string_view{key} == "visible";
            if (member(object, key) == true) add(label, key, good ? Style::green : Style::plain);
        }
    }

    std::string popup(const Json& popup) const {
        std::string label = "popup " + printable(text(popup, "name"));
        addFlags(label, popup, {"visible", "active", "requested", "suppressed", "isFullscreen"});
        if (!member(popup, "priorityInlayer").is_null()) add(label, "priority " + compact(member(popup, "priorityInlayer")));
        if (!text(popup, "slot").empty()) add(label, "slot " + text(popup, "slot"));
        add(label, shortId(popup), Style::dim);
        return label;
    }

    std::string region(const Json& region, bool loose) const {
        std::string label = "region " + printable(regionName(region));
        add(label, boundsText(region));
        if (loose && !text(region, "layer").empty())
            add(label, "layer " + text(region, "layer") + " is not shown", Style::yellow);
        addFlags(label, region, {"exclusive", "keepFocus", "notifyOutside", "dropEvent", "translateInput"});
        return label;
    }

    std::vector<std::string>& lines_;
    bool colour_;
};

}  // namespace

Json makeScene(const DisplayScene& scene) {
    Json made = scene.display;
    std::vector<Json> layers;
    if (scene.layers.is_array()) layers.assign(scene.layers.begin(), scene.layers.end());
    std::stable_sort(layers.begin(), layers.end(),
                     [](const Json& a, const Json& b) { return numberOr(a, "zpos", INT_MIN) > numberOr(b, "zpos", INT_MIN); });
    made["layers"] = layers;
    if (scene.popups) {
        std::vector<Json> popups = *scene.popups;
        std::stable_sort(popups.begin(), popups.end(), [](const Json& a, const Json& b) {
            return numberOr(a, "priorityInlayer", INT_MIN) > numberOr(b, "priorityInlayer", INT_MIN);
        });
        for (const Json& popup : popups) {
            put(placeOf(made, {text(popup, "popupLayerCompositing"), text(popup, "popupLayerLogical")}), "popups", popup);
        }
    }
    if (scene.regions) {
        for (const Json& region : *scene.regions) put(placeOf(made, {text(region, "layer")}), "regions", region);
    }
    return made;
}

std::vector<std::string> sceneLines(const std::vector<Json>& scenes, bool colour) {
    std::vector<std::string> lines;
    Drawing drawing{lines, colour};
    for (const Json& scene : scenes) drawing.display(scene);
    return lines;
}

}  // namespace hmxctl
