#include "make_world.h"

#include <array>
#include <charconv>

#include "random.h"
#include "util/text.h"

namespace hmxsim {

namespace {

namespace dm = kelo::hmx::displaymanager;
namespace input = kelo::hmx::inputregions;
using kelo::hmx::popups::Popup;

constexpr int mostOfEach = 100'000;
constexpr int layersOfDisplay = 4;

// The first displays are those that region configurations can be made for.
std::string displayName(int number) {
    constexpr std::array<std::string_view, 4> names{"Driver_Display", "Co_Driver_Display", "Cluster_Display", "Lower_Display"};
    return number < static_cast<int>(names.size()) ? std::string{names[static_cast<std::size_t>(number)]}
                                                   : "Display_" + std::to_string(number);
}

// Makes the random choices that distinguish one world from another. Thread: one at a time.
class Maker {
public:
    explicit Maker(std::uint64_t seed) : random_{seed} {}

    dm::Display display(int number) {
        dm::Display display;
        display.id = number;
        display.name = displayName(number);
        display.terminal = number;
        display.touchSupport = random_.chance(0.7);
        display.compositing = random_.chance(0.5);
        display.updateRate = 30 * (1 + below(2));
        display.resolution = dm::DisplayResolution{640 * (1 + below(6)), 360 * (1 + below(4))};
        if (random_.chance(0.8)) display.connector = "DP-" + std::to_string(number);
        return display;
    }
    std::shared_ptr<dm::Layer> layer(int display, int number) {
        return std::make_shared<dm::Layer>(
            dm::Layer{display * layersOfDisplay + number, "layer_" + std::to_string(number), random_.chance(0.9), number * 10});
    }
    dm::Displayable displayable(int number) {
        dm::Displayable displayable;
        displayable.id = 1000 + number;
        displayable.name = "displayable_" + std::to_string(number);
        displayable.type = below(4);
        displayable.size = dm::DisplayableSize{1 + below(1920), 1 + below(1080)};
        displayable.is_visible = random_.chance(0.5);
        return displayable;
    }
    Popup popup(int number) {
        Popup popup;
        popup.name = "popup_" + std::to_string(number);
        popup.slot = "slot_" + std::to_string(below(4));
        popup.priorityInlayer = below(100);
        popup.isFullscreen = random_.chance(0.1);
        popup.requested = random_.chance(0.3);
        return popup;
    }
    input::InputRegion region(const dm::Display& display) {
        input::InputRegion region;
        const int width = 20 + below(200);
        const int height = 20 + below(100);
        region.bounds = std::make_shared<input::Rectangle>();
        region.bounds->pointMin = std::make_shared<input::Point>(
            input::Point{below(*display.resolution->width - width), below(*display.resolution->height - height)});
        region.bounds->width = width;
        region.bounds->height = height;
        region.exclusive = random_.chance(0.1);
        region.notifyOutside = random_.chance(0.1);
        return region;
    }
    int below(int count) { return static_cast<int>(random_.below(static_cast<std::uint64_t>(count))); }

private:
    Random random_;
};

void addRegion(Maker& maker, const dm::Display& display, InputDisplay& place) {
    auto& sets = *place.regions;
    if (sets.empty())
        sets.push_back({"HMI_ID_ANDROID_DRIVER", {}, std::vector<input::HapticAndInputInfoPerLayer>(layersOfDisplay)});
    const int layer = maker.below(layersOfDisplay);
    auto& info = sets.front().infoForAllLayers[static_cast<std::size_t>(layer)];
    info.layer = "layer_" + std::to_string(layer);
    if (!info.inputRegions) info.inputRegions.emplace();
    info.inputRegions->push_back(maker.region(display));
}

}  // namespace

std::string readWorldSize(std::string_view text, WorldSize& size) {
    struct Member {
        std::string_view name;
        int least;
        int* value;
    };
    const std::array<Member, 4> members{{{"displays", 1, &size.displays},
                                         {"displayables", 0, &size.displayables},
                                         {"popups", 0, &size.popups},
                                         {"regions", 0, &size.regions}}};
    while (!text.empty()) {
        const std::string_view entry = util::takeEntry(text);
        const auto equals = entry.find('=');
        const Member* found = nullptr;
        for (const Member& member : members) {
            if (entry.substr(0, equals) == member.name) found = &member;
        }
        if (found == nullptr || equals == std::string_view::npos) {
            return "\"" + std::string{entry} + "\" is none of displays=N, displayables=N, popups=N, regions=N";
        }
        const char* const end = entry.data() + entry.size();
        const auto [stop, error] = std::from_chars(entry.data() + equals + 1, end, *found->value);
        if (error != std::errc{} || stop != end || *found->value < found->least || *found->value > mostOfEach) {
            return std::string{entry} + ": not from " + std::to_string(found->least) + " to " + std::to_string(mostOfEach);
        }
    }
    return {};
}

World makeWorld(const WorldSize& size, std::uint64_t seed) {
    World world;
    Maker maker{seed};
    for (int i = 0; i < size.displays; ++i) {
        dm::Display& display = world.displays().emplace_back(maker.display(i));
        dm::DisplayLayers layers{std::make_shared<dm::Display>(display),
                                 dm::LayerList{std::vector<std::shared_ptr<dm::Layer>>{}}};
        for (int layer = 0; layer < layersOfDisplay; ++layer) layers.layers->infoForAllLayers->push_back(maker.layer(i, layer));
        display.activelayers = *layers.layers->infoForAllLayers;
        world.layerConfig.push_back({std::move(layers)});
        InputDisplay& place = world.inputDisplays.emplace_back();
        place.name = *display.name;
        place.regions.emplace();
        world.popupDisplays.push_back({*display.name, {}});
    }
    for (int i = 0; i < size.displayables; ++i) world.displayables().push_back(maker.displayable(i));
    const auto placeOf = [&](int i) { return static_cast<std::size_t>(i % size.displays); };
    for (int i = 0; i < size.popups; ++i) {
        PopupState& state = world.popupDisplays[placeOf(i)].popups.emplace_back();
        state.popup = maker.popup(i);
        if (*state.popup.requested) state.requestOrder = ++world.popupRequests;
    }
    for (PopupDisplay& display : world.popupDisplays) {
        for (int slot = 0; slot < 4; ++slot) arbitrate(display.popups, "slot_" + std::to_string(slot));
    }
    for (int i = 0; i < size.regions; ++i) addRegion(maker, world.displays()[placeOf(i)], world.inputDisplays[placeOf(i)]);
    for (InputDisplay& display : world.inputDisplays) assignRegionIds(display);
    return world;
}

}  // namespace hmxsim
