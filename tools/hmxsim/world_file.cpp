// A world file is an object with a member for each manager, all of them optional:
//
//     {"displaymanager": {"displays": [Display…], "displayables": [Displayable…], "layerConfig": [DisplayLayersArrayInner…]},
//      "inputmanager": {"displays": ["Driver_Display", InputDisplay…]},
//      "popupmanager": {"displays": {"Driver_Display": [Popup…]}}}
//
// The elements are the records that go over the wire, read with the same tables, but nothing is skipped: a key that the table
// does not have is refused. Elements that clients could not tell apart are refused, too.
#include "world_file.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "managers.h"

namespace hmxsim {

namespace {

namespace dm = kelo::hmx::displaymanager;
using kelo::hmx::popups::Popup;
using nlohmann::ordered_json;

constexpr std::string_view standardWorld = "cockpit";

// Calls `read(node, path)` if the object has the member.
template <class Read>
void withMember(const Node& object, std::string_view key, const std::string& path, Read read) {
    if (const Node* const node = object.find(key)) read(*node, memberPath(path, key));
}

void readDisplayManager(const Document& document, const Node& part, const std::string& path, World& world) {
    document.expectKeys(part, {"displays", "displayables", "layerConfig"}, path);
    withMember(part, "displays", path, [&](const Node& node, const std::string& place) {
        world.displays() = document.readList<dm::Display>(node, place);
        document.refuseDuplicates(node, "name", place);
    });
    withMember(part, "displayables", path, [&](const Node& node, const std::string& place) {
        world.displayables() = document.readList<dm::Displayable>(node, place);
        document.refuseDuplicates(node, "name", place);
    });
    withMember(part, "layerConfig", path, [&](const Node& node, const std::string& place) {
        world.layerConfig = document.readList<dm::DisplayLayersArrayInner>(node, place);
        document.refuseDuplicates(node, "layersForDisplay.display.name", place);
    });
}

// A display's regions are identified by their ids, whatever their HMI, and its HMIs by name and subcomponent.
void refuseRepeatedRegions(const Document& document, const Node& display, const std::string& path) {
    std::map<std::int64_t, int> lines;
    std::set<std::pair<std::string, std::string>> hmis;
    const auto eachOf = [](const Node& parent, const char* key, const std::string& place, auto visit) {
        withMember(parent, key, place, [&](const Node& list, const std::string& listPath) {
            for (std::size_t i = 0; i < list.children.size(); ++i) visit(list.children[i], elementPath(listPath, i));
        });
    };
    const auto textOf = [](const Node& parent, const char* key) {
        const Node* const node = parent.find(key);
        return node == nullptr ? std::string{} : node->text;
    };
    eachOf(display, "regions", path, [&](const Node& hmi, const std::string& hmiPath) {
        if (!hmis.emplace(textOf(hmi, "hmi"), textOf(hmi, "subComponent")).second) {
            document.refuse(hmi, hmiPath, "this HMI and component stand here a second time");
        }
        eachOf(hmi, "infoForAllLayers", hmiPath, [&](const Node& layer, const std::string& layerPath) {
            eachOf(layer, "inputRegions", layerPath, [&](const Node& region, const std::string& regionPath) {
                withMember(region, "regionID", regionPath, [&](const Node& id, const std::string& idPath) {
                    const auto [first, isNew] = lines.emplace(id.integer, id.line);
                    if (isNew) return;
                    document.refuse(id, idPath,
                                    std::to_string(id.integer) + " stands here a second time; first in line " +
                                        std::to_string(first->second));
                });
            });
        });
    });
}

void readInputManager(const Document& document, const Node& part, const std::string& path, World& world) {
    document.expectKeys(part, {"displays"}, path);
    withMember(part, "displays", path, [&](const Node& node, const std::string& place) {
        document.expect(node, Node::Type::array, place);
        for (std::size_t i = 0; i < node.children.size(); ++i) {
            const Node& child = node.children[i];
            InputDisplay display;
            if (child.type == Node::Type::string) {
                display.name = child.text;
            } else {
                display = document.read<InputDisplay>(child, elementPath(place, i));
                refuseRepeatedRegions(document, child, elementPath(place, i));
                assignRegionIds(display);
            }
            if (world.findInputDisplay(display.name) != nullptr) {
                document.refuse(child, elementPath(place, i), '"' + display.name + "\" stands here a second time");
            }
            world.inputDisplays.push_back(std::move(display));
        }
    });
}

void readPopupManager(const Document& document, const Node& part, const std::string& path, World& world) {
    document.expectKeys(part, {"displays"}, path);
    withMember(part, "displays", path, [&](const Node& node, const std::string& place) {
        document.expect(node, Node::Type::object, place);
        for (const Node& child : node.children) {
            const std::string listPath = memberPath(place, child.key);
            PopupDisplay& display = world.popupDisplays.emplace_back(PopupDisplay{child.key, {}});
            for (Popup& popup : document.readList<Popup>(child, listPath)) {
                PopupState& state = display.popups.emplace_back(PopupState{std::move(popup), 0, false});
                if (state.popup.requested.value_or(false)) state.requestOrder = ++world.popupRequests;
            }
            document.refuseDuplicates(child, "name", listPath);
        }
    });
}

template <class T>
ordered_json toJson(const T& value) {
    return ordered_json::parse(jsonText(kelo::BodyView::of(value)));
}

}  // namespace

World readWorld(const Document& document) {
    World world;
    const Node& root = document.root();
    const std::string_view names[] = {nameOf(ManagerId::display), nameOf(ManagerId::input), nameOf(ManagerId::popup)};
    document.expectKeys(root, {names[0], names[1], names[2]}, "");
    const auto readPart = [&](ManagerId id, auto read) {
        withMember(root, nameOf(id), "", [&](const Node& node, const std::string& path) { read(document, node, path, world); });
    };
    readPart(ManagerId::display, readDisplayManager);
    readPart(ManagerId::input, readInputManager);
    readPart(ManagerId::popup, readPopupManager);
    return world;
}

std::string writeWorld(World& world, bool indented) {
    ordered_json document;
    ordered_json& displays = document[std::string{nameOf(ManagerId::display)}];
    displays["displays"] = toJson(world.displays());
    displays["displayables"] = toJson(world.displayables());
    displays["layerConfig"] = toJson(world.layerConfig);
    document[std::string{nameOf(ManagerId::input)}]["displays"] = toJson(world.inputDisplays);
    ordered_json& popups = document[std::string{nameOf(ManagerId::popup)}]["displays"];
    popups = ordered_json::object();
    for (const PopupDisplay& display : world.popupDisplays) {
        ordered_json& list = popups[display.name] = ordered_json::array();
        for (const PopupState& state : display.popups) list.push_back(toJson(state.popup));
    }
    return document.dump(indented ? 2 : -1);
}

std::vector<std::string> worldFolders(const std::string& program) {
    std::vector<std::string> folders;
    std::filesystem::path folder = std::filesystem::path{program}.parent_path();
    folders.push_back((folder.parent_path() / "share/hmxtolubridge/worlds").string());
    // A build folder is rarely deeper than this in its tree.
    for (int level = 0; level < 4 && folder.has_relative_path(); ++level) {
        folder = folder.parent_path();
        folders.push_back((folder / "share/worlds").string());
    }
    return folders;
}

std::string findWorld(const std::string& wanted, const std::vector<std::string>& folders) {
    std::error_code ignored;
    if (!wanted.empty() && (wanted.find('/') != std::string::npos || std::filesystem::exists(wanted, ignored))) return wanted;
    std::string tried;
    for (const std::string& folder : folders) {
        std::string file = folder + '/' + (wanted.empty() ? std::string{standardWorld} : wanted) + ".json";
        if (std::filesystem::exists(file, ignored)) return file;
        (tried += tried.empty() ? "" : ", ") += file;
    }
    throw DocumentError(wanted, 0, "",
                        (wanted.empty() ? "no sample world found; give one with --world FILE" : "no such world file or sample") +
                            std::string{"; tried "} + tried);
}

}  // namespace hmxsim
