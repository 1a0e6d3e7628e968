// A display occurs twice, in the list of displays and in its layer configuration. A change to one is made to both.
#include "display_manager.h"

#include <charconv>

#include "hmx/displaymanager/display_update.h"
#include "hmx/displaymanager/displayable_update.h"
#include "tracing/channel.h"

namespace hmxsim {

namespace {

namespace displaymanager = kelo::hmx::displaymanager;
using kelo::Response;
using kelo::commands::retrieve;
using kelo::commands::update;

const tracing::Channel displayChannel{"HMXSIM_DISPLAYMANAGER"};

Response noDisplayable(const Call& call) {
    return notFound("no such displayable: " + call.first);
}

displaymanager::Displayable* displayableOf(World& world, const std::string& id) {
    int number = 0;
    const char* const end = id.data() + id.size();
    const auto [stop, error] = std::from_chars(id.data(), end, number);
    return error == std::errc{} && stop == end ? world.findDisplayable(number) : nullptr;
}

void apply(const displaymanager::DisplayUpdate& change, displaymanager::Display& display) {
    if (change.compositing) display.compositing = change.compositing;
    if (change.updateRate) display.updateRate = change.updateRate;
}

}  // namespace

const Route<DisplayManager> DisplayManager::routes[] = {
    {retrieve, "/displays", &DisplayManager::displays},          {retrieve, "/displays/*", &DisplayManager::display},
    {update, "/displays/*", &DisplayManager::updateDisplay},     {retrieve, "/displayables", &DisplayManager::displayables},
    {retrieve, "/displayables/*", &DisplayManager::displayable}, {update, "/displayables/*", &DisplayManager::updateDisplayable},
    {retrieve, "/layerConfig", &DisplayManager::layerConfigs},   {retrieve, "/layerConfig/*", &DisplayManager::layerConfig},
};

Response DisplayManager::answer(const kelo::Request& request) {
    return dispatch<DisplayManager>(*this, routes, request);
}

Response DisplayManager::displays(const Call& call) {
    return valueFor(call.request, world_.displaysInfo);
}

Response DisplayManager::display(const Call& call) {
    const displaymanager::Display* const display = world_.findDisplay(call.first);
    return display != nullptr ? valueFor(call.request, *display) : noDisplay(call.first);
}

Response DisplayManager::updateDisplay(const Call& call) {
    displaymanager::Display* const display = world_.findDisplay(call.first);
    if (display == nullptr) return noDisplay(call.first);
    Response answer;
    displaymanager::DisplayUpdate change;
    if (bodyFails(call.request, change, "DisplayUpdate", answer)) return answer;
    apply(change, *display);
    if (const auto* const layers = world_.findLayers(call.first)) apply(change, *layers->display);
    if (const auto& screenshot = change.takeScreenshot) {
        tracing::logCV(displayChannel, 2, "screenshot of %s to \"%s/%s\"", call.first.c_str(),
                       screenshot->outputDirectory.value_or("").c_str(), screenshot->filename.value_or("").c_str());
    }
    return done();
}

Response DisplayManager::displayables(const Call& call) {
    return valueFor(call.request, world_.displayablesInfo);
}

Response DisplayManager::displayable(const Call& call) {
    const displaymanager::Displayable* const displayable = displayableOf(world_, call.first);
    return displayable != nullptr ? valueFor(call.request, *displayable) : noDisplayable(call);
}

Response DisplayManager::updateDisplayable(const Call& call) {
    displaymanager::Displayable* const displayable = displayableOf(world_, call.first);
    if (displayable == nullptr) return noDisplayable(call);
    Response answer;
    displaymanager::DisplayableUpdate change;
    if (bodyFails(call.request, change, "DisplayableUpdate", answer)) return answer;
    if (change.is_visible) displayable->is_visible = change.is_visible;
    if (change.layers) {
        displayable->layers.emplace();
        for (const auto& layer : *change.layers) displayable->layers->push_back(std::make_shared<displaymanager::Layer>(layer));
    }
    return done();
}

Response DisplayManager::layerConfigs(const Call& call) {
    return valueFor(call.request, world_.layerConfig);
}

Response DisplayManager::layerConfig(const Call& call) {
    const displaymanager::DisplayLayers* const layers = world_.findLayers(call.first);
    return layers != nullptr ? valueFor(call.request, *layers) : notFound("no layer configuration of display: " + call.first);
}

}  // namespace hmxsim
