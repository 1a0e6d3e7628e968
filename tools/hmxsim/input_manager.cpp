// Regions are kept as they came, one set for each HMI and subcomponent; the getters compute their answers from these sets each
// time. A region without an id is given one when it arrives. A region that takes another one's place in its set also takes its
// id, so sending the same set again changes nothing.
#include "input_manager.h"

#include <algorithm>
#include <limits>

#include "hmx/inputregions/haptic_and_input_info_per_hmi.h"
#include "tracing/channel.h"

namespace hmxsim {

namespace {

namespace inputregions = kelo::hmx::inputregions;
using kelo::Response;
using kelo::commands::retrieve;
using kelo::commands::update;

const tracing::Channel inputChannel{"HMXSIM_INPUTMANAGER"};

// A layer's position from the back of the display, by its name or its id in decimal; the smallest number for an unknown layer.
int depthOf(const kelo::hmx::displaymanager::DisplayLayers* configuration, const std::string& layer) {
    if (configuration != nullptr && configuration->layers && configuration->layers->infoForAllLayers) {
        for (const auto& candidate : *configuration->layers->infoForAllLayers) {
            if (candidate->name.value_or("") == layer || std::to_string(candidate->id) == layer)
                return candidate->zpos.value_or(0);
        }
    }
    return std::numeric_limits<int>::min();
}

// Keeps regions with the depth of their layer until they are sorted.
template <class Region>
class Sorter {
public:
    void add(const Region& region, const HmiRegions& set, const std::string& layer, int depth) {
        Region filled = region;
        filled.hmiName = set.hmi;
        if (!filled.layer && !layer.empty()) filled.layer = layer;
        found_.emplace_back(depth, std::move(filled));
    }
    std::vector<Region> take() {
        std::stable_sort(found_.begin(), found_.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
        std::vector<Region> regions;
        regions.reserve(found_.size());
        for (auto& [depth, region] : found_) regions.push_back(std::move(region));
        return regions;
    }

private:
    std::vector<std::pair<int, Region>> found_;
};

// Leaves only the regions of one HMI, or of all.
template <class Region>
void keepOf(std::string_view hmi, kelo::optional<std::vector<Region>>& regions) {
    if (regions && !hmi.empty())
        std::erase_if(*regions, [&](const Region& region) { return region.hmiName.value_or("") != hmi; });
}

using Layers = std::vector<inputregions::HapticAndInputInfoPerLayer>;

// Gives regions without an id the ids of the regions whose places they take.
void keepIds(Layers& fresh, const Layers& replaced) {
    for (std::size_t layer = 0; layer < std::min(fresh.size(), replaced.size()); ++layer) {
        auto& regions = fresh[layer].inputRegions;
        const auto& old = replaced[layer].inputRegions;
        for (std::size_t i = 0; regions && old && i < std::min(regions->size(), old->size()); ++i) {
            if (!(*regions)[i].regionID) (*regions)[i].regionID = (*old)[i].regionID;
        }
    }
}

}  // namespace

inputregions::HapticAndInputInfoSorted sortedRegions(World& world, const InputDisplay& display, std::string_view hmi) {
    if (const auto recorded = world.surfaces.find(display.name); recorded != world.surfaces.end()) {
        inputregions::HapticAndInputInfoSorted surface = recorded->second;
        keepOf(hmi, surface.regionInfoSorted);
        keepOf(hmi, surface.hapticInfoSorted);
        return surface;
    }
    Sorter<inputregions::InputRegion> inputs;
    Sorter<inputregions::HapticRegion> haptics;
    const auto* const configuration = world.findLayers(display.name);
    for (const HmiRegions& set : display.regions.value_or(std::vector<HmiRegions>{})) {
        if (!hmi.empty() && set.hmi != hmi) continue;
        for (const auto& perLayer : set.infoForAllLayers) {
            const std::string layer = perLayer.layer.value_or("");
            const int depth = depthOf(configuration, layer);
            if (perLayer.inputRegions) {
                for (const auto& region : *perLayer.inputRegions) inputs.add(region, set, layer, depth);
            }
            if (perLayer.hapticRegions) {
                for (const auto& region : *perLayer.hapticRegions) haptics.add(region, set, layer, depth);
            }
        }
    }
    inputregions::HapticAndInputInfoSorted sorted;
    sorted.regionInfoSorted = inputs.take();
    sorted.hapticInfoSorted = haptics.take();
    return sorted;
}

const Route<InputManager> InputManager::routes[] = {
    // The pattern for an HMI's regions matches the other paths too, so it comes last.
    {retrieve, "/*/proximity", &InputManager::proximity},
    {retrieve, "/*/shutter", &InputManager::shutter},
    {retrieve, "/*/force", &InputManager::force},
    {retrieve, "/*", &InputManager::regionsOfDisplay},
    {retrieve, "/*/*", &InputManager::regionsOfHmi},
    {update, "/*/power", &InputManager::setPower},
    {update, "/*/proximity", &InputManager::setProximity},
    {update, "/*/shutter", &InputManager::setShutter},
    {update, "/*/hapticfeedback", &InputManager::triggerHaptic},
    {update, "/*/*", &InputManager::setRegions},
};

Response InputManager::answer(const kelo::Request& request) {
    return dispatch<InputManager>(*this, routes, request);
}

Response InputManager::proximity(const Call& call) {
    const InputDisplay* const display = world_.findInputDisplay(call.first);
    return display != nullptr ? valueFor(call.request, display->proximity.value_or(false)) : noDisplay(call.first);
}

Response InputManager::shutter(const Call& call) {
    const InputDisplay* const display = world_.findInputDisplay(call.first);
    return display != nullptr
               ? valueFor(call.request, display->shutter.value_or(inputregions::ShutterInfo{false, inputregions::Status::ok}))
               : noDisplay(call.first);
}

Response InputManager::force(const Call& call) {
    const InputDisplay* const display = world_.findInputDisplay(call.first);
    return display != nullptr
               ? valueFor(call.request, display->force.value_or(inputregions::ForceInfo{false, inputregions::Status::ok}))
               : noDisplay(call.first);
}

Response InputManager::regionsOfDisplay(const Call& call) {
    const InputDisplay* const display = world_.findInputDisplay(call.first);
    return display != nullptr ? valueFor(call.request, sortedRegions(world_, *display, call.second)) : noDisplay(call.first);
}

// An HMI without regions and one that does not exist get the same answer.
Response InputManager::regionsOfHmi(const Call& call) {
    return regionsOfDisplay(call);
}

template <class Body, class Change>
Response InputManager::changeDisplay(const Call& call, const char* bodyType, Change change) {
    InputDisplay* const display = world_.findInputDisplay(call.first);
    if (display == nullptr) return noDisplay(call.first);
    Response answer;
    Body body{};
    if (bodyFails(call.request, body, bodyType, answer)) return answer;
    change(*display, std::move(body));
    return done();
}

Response InputManager::setPower(const Call& call) {
    return changeDisplay<bool>(call, "bool", [](InputDisplay& display, bool on) { display.power = on; });
}

Response InputManager::setProximity(const Call& call) {
    return changeDisplay<bool>(call, "bool", [](InputDisplay& display, bool active) { display.proximity = active; });
}

Response InputManager::setShutter(const Call& call) {
    return changeDisplay<bool>(call, "bool", [](InputDisplay& display, bool active) {
        display.shutter = inputregions::ShutterInfo{active, inputregions::Status::ok};
    });
}

Response InputManager::triggerHaptic(const Call& call) {
    return changeDisplay<inputregions::HapticTrigger>(
        call, "HapticTrigger", [](InputDisplay& display, inputregions::HapticTrigger&& trigger) {
            tracing::logCV(inputChannel, 1, "haptic feedback %i on %s", trigger.hapticFeedback.value_or(0), display.name.c_str());
            display.lastHaptic = std::move(trigger);
        });
}

Response InputManager::setRegions(const Call& call) {
    return changeDisplay<inputregions::HapticAndInputInfoPerHMI>(
        call, "HapticAndInputInfoPerHMI", [&](InputDisplay& display, inputregions::HapticAndInputInfoPerHMI&& info) {
            world_.surfaces.erase(display.name);
            if (!display.regions) display.regions.emplace();
            auto& sets = *display.regions;
            const auto set = std::find_if(sets.begin(), sets.end(), [&](const HmiRegions& candidate) {
                return candidate.hmi == call.second && candidate.subComponent.value_or("") == info.subComponent.value_or("");
            });
            if (info.infoForAllLayers.empty()) {
                if (set != sets.end()) sets.erase(set);
            } else if (set != sets.end()) {
                keepIds(info.infoForAllLayers, set->infoForAllLayers);
                set->infoForAllLayers = std::move(info.infoForAllLayers);
            } else {
                sets.push_back({call.second, std::move(info.subComponent), std::move(info.infoForAllLayers)});
            }
            assignRegionIds(display);
        });
}

}  // namespace hmxsim
