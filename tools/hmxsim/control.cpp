// Everything below "/hmxsim" is JSON, in and out, and is answered with one value:
//
//     retrieve /world                          the world as it is now, as a world file has it
//     retrieve /requests                       what arrived at the simulated services, oldest first; delete forgets it
//     retrieve /faults                         the rules in force, by service
//     update   /faults/<service>               a rule (FaultRule), in place of the one before; delete takes it away
//     insert   /plan                           a plan, which starts at once; retrieve says what is pending; delete cancels all
//     retrieve /replay                         what the replay of a recording is at; update it with true to run, false to pause
//     insert   /state/displaymanager/displays               a Display; likewise displayables, layerConfig (a DisplayLayers)
//     update   /state/displaymanager/displays/<name>        displayables by id or name, layerConfig by its display's name
//     insert   /state/inputmanager/displays                 an InputDisplay; update and delete by its name
//     insert   /popups/<display>               a Popup, on a display that need not be known; update and delete
//     /popups/<display>/<name>
//
// The body of an update is a merge patch (RFC 7396): members that it names are set, null removes one, nested objects are merged,
// arrays replaced. What results must be a record as a world file would have it, and may not be mistaken for another element.
#include "control.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tracing/channel.h"
#include "world_file.h"

namespace hmxsim {

namespace {

namespace dm = kelo::hmx::displaymanager;
using kelo::Response;
using kelo::commands::insert;
using kelo::commands::remove;
using kelo::commands::retrieve;
using kelo::commands::update;
using kelo::hmx::popups::Popup;
using nlohmann::ordered_json;

// What leaves room for the headers in a frame of the usual size.
constexpr std::size_t mostRequestBytes = 900U << 10U;

const tracing::Channel controlChannel{"HMXSIM_CONTROL"};

Response json(std::string_view text) {
    return Response{200, kelo::Payload::copyOf(text, kelo::MimeType{kelo::mimetypes::MimeTypeID::json})};
}

// The request's body; throws DocumentError.
Document bodyOf(const Call& call) {
    const kelo::Payload& payload = call.request.payload();
    if (payload.mimeType().id() != kelo::mimetypes::MimeTypeID::json) {
        throw DocumentError(
            "", 0, "", "the simulator's control takes application/json, not \"" + std::string{payload.mimeType().text()} + '"');
    }
    return {"", std::string{payload.text()}};
}

template <class T>
T bodyAs(const Call& call) {
    const Document body = bodyOf(call);
    return body.read<T>(body.root(), "");
}

// The record with the patch applied.
template <class T>
T patched(const T& value, const Document& patch) {
    patch.expect(patch.root(), Node::Type::object, "");
    auto merged = ordered_json::parse(jsonText(kelo::BodyView::of(value)));
    merged.merge_patch(ordered_json::parse(patch.textOf(patch.root())));
    const Document document{"", merged.dump()};
    return document.read<T>(document.root(), "");
}

// Whether clients could take one for the other.
template <class T>
bool clash(const T& a, const T& b) {
    return a.id == b.id || (a.name && b.name && *a.name == *b.name);
}
bool clash(const dm::DisplayLayersArrayInner& a, const dm::DisplayLayersArrayInner& b) {
    const auto named = [](const auto& entry) {
        return entry.layersForDisplay && entry.layersForDisplay->display && entry.layersForDisplay->display->name;
    };
    return named(a) && named(b) && *a.layersForDisplay->display->name == *b.layersForDisplay->display->name;
}
bool clash(const InputDisplay& a, const InputDisplay& b) {
    return a.name == b.name;
}
bool clash(const PopupState& a, const PopupState& b) {
    return a.popup.name == b.popup.name;
}

template <class T>
bool clashesInList(std::vector<T>& list, const T& element, const T* replaced = nullptr) {
    return std::any_of(list.begin(), list.end(), [&](const T& other) { return &other != replaced && clash(other, element); });
}

Response taken() {
    return refusal(409, "there is another with this id or name");
}

// Puts the element into the list in the place of `replaced`, or at the end if that is null.
template <class T>
Response put(std::vector<T>& list, T element, T* replaced = nullptr) {
    if (clashesInList(list, element, replaced)) return taken();
    if (replaced != nullptr) {
        *replaced = std::move(element);
    } else {
        list.push_back(std::move(element));
    }
    return done();
}

template <class T>
Response removeFrom(std::vector<T>& list, const T* element) {
    list.erase(list.begin() + (element - list.data()));
    return done();
}

Response unknown(const Call& call) {
    return notFound("there is no " + call.request.path());
}

}  // namespace

const Route<Control> Control::routes[] = {
    {retrieve, "/world", &Control::world},
    {retrieve, "/requests", &Control::requests},
    {remove, "/requests", &Control::clearRequests},
    {retrieve, "/faults", &Control::faults},
    {update, "/faults/*", &Control::setFault},
    {remove, "/faults/*", &Control::clearFault},
    {retrieve, "/plan", &Control::plan},
    {insert, "/plan", &Control::insertPlan},
    {remove, "/plan", &Control::cancelPlans},
    {retrieve, "/replay", &Control::replay},
    {update, "/replay", &Control::runReplay},
    {insert, "/state/displaymanager/displays", &Control::insertDisplay},
    {update, "/state/displaymanager/displays/*", &Control::changeDisplay},
    {remove, "/state/displaymanager/displays/*", &Control::removeDisplay},
    {insert, "/state/displaymanager/displayables", &Control::insertDisplayable},
    {update, "/state/displaymanager/displayables/*", &Control::changeDisplayable},
    {remove, "/state/displaymanager/displayables/*", &Control::removeDisplayable},
    {insert, "/state/displaymanager/layerConfig", &Control::insertLayers},
    {update, "/state/displaymanager/layerConfig/*", &Control::changeLayers},
    {remove, "/state/displaymanager/layerConfig/*", &Control::removeLayers},
    {insert, "/state/inputmanager/displays", &Control::insertInputDisplay},
    {update, "/state/inputmanager/displays/*", &Control::changeInputDisplay},
    {remove, "/state/inputmanager/displays/*", &Control::removeInputDisplay},
    {insert, "/popups/*", &Control::insertPopup},
    {update, "/popups/*/*", &Control::changePopup},
    {remove, "/popups/*/*", &Control::removePopup},
};

Control::Control(World& world, const Services& services, Surroundings& surroundings, std::uint64_t seed,
                 std::function<void()> worldChanged)
    : world_{world},
      services_{services},
      surroundings_{surroundings},
      seed_{seed},
      worldChanged_{std::move(worldChanged)},
      plans_{surroundings.timers, [this](const PlannedStep& step) { runStep(step); }} {}

Response Control::answer(const kelo::Request& request) {
    try {
        Response answer = dispatch<Control>(*this, routes, request);
        if (kelo::commands::toId(request.command()) != retrieve && !isError(answer)) worldChanged_();
        return answer;
    } catch (const std::exception& error) {  // a body that is not what it should be
        return refusal(400, error.what());
    }
}

void Control::runStep(const PlannedStep& step) {
    const kelo::Request request{step.command, step.path,
                                kelo::Payload::copyOf(step.body, kelo::MimeType{kelo::mimetypes::MimeTypeID::json})};
    const Response response = answer(request);
    if (!isError(response)) return;
    tracing::logCV(controlChannel, 4, "planned %s %s failed: %s", step.command.c_str(), step.path.c_str(),
                   response.toString().c_str());
}

Service* Control::findService(std::string_view name) const noexcept {
    const auto found =
        std::find_if(services_.begin(), services_.end(), [&](const Service* service) { return service->name() == name; });
    return found == services_.end() ? nullptr : *found;
}

// --- The simulator itself ------------------------------------------------------------------------------------------------------

Response Control::world(const Call&) {
    return json(writeWorld(world_, false));
}

Response Control::requests(const Call&) {
    return json(surroundings_.log.toJson(mostRequestBytes));
}

Response Control::clearRequests(const Call&) {
    surroundings_.log.clear();
    return done();
}

Response Control::faults(const Call&) {
    ordered_json rules = ordered_json::object();
    for (Service* const service : services_) {
        rules[std::string{service->name()}] = ordered_json::parse(jsonText(kelo::BodyView::of(service->faults().rule())));
    }
    return json(rules.dump());
}

Response Control::setFault(const Call& call) {
    Service* const service = findService(call.first);
    if (service == nullptr) return unknown(call);
    const auto rule = bodyAs<FaultRule>(call);
    if (const std::string complaint = complaintAbout(rule); !complaint.empty()) return refusal(400, complaint);
    if (!rule.now.value_or(false)) {
        service->faults().set(rule, seed_);
        return done();
    }
    // At once, but not before this is answered. What was in force before is not when the service returns.
    service->faults().set({}, seed_);
    surroundings_.timers.at(surroundings_.timers.now(), [this, service, rule] {
        if (rule.crash.value_or(false)) surroundings_.host.crash();
        surroundings_.host.close(service->name(), reopenAfter(rule));
    });
    return done();
}

Response Control::clearFault(const Call& call) {
    Service* const service = findService(call.first);
    if (service == nullptr) return unknown(call);
    service->faults().set({}, seed_);
    return done();
}

Response Control::plan(const Call&) {
    return json(ordered_json{{"pending", plans_.pending()}}.dump());
}

Response Control::insertPlan(const Call& call) {
    plans_.start(readPlan(bodyOf(call), seed_));
    return done();
}

Response Control::cancelPlans(const Call&) {
    plans_.cancelAll();
    return done();
}

Response Control::replay(const Call& call) {
    return replay_ != nullptr ? json(replay_->status()) : unknown(call);
}

Response Control::runReplay(const Call& call) {
    if (replay_ == nullptr) return unknown(call);
    const Document body = bodyOf(call);
    body.expect(body.root(), Node::Type::boolean, "");
    replay_->run(ordered_json::parse(call.request.payload().text()).get<bool>());
    return done();
}

// --- Displays, displayables, layers --------------------------------------------------------------------------------------------

Response Control::insertDisplay(const Call& call) {
    return put(world_.displays(), bodyAs<dm::Display>(call));
}

// The display in its layer configuration is the same one.
Response Control::changeDisplay(const Call& call) {
    dm::Display* const display = world_.findDisplay(call.first);
    if (display == nullptr) return unknown(call);
    const Document patch = bodyOf(call);
    Response answer = put(world_.displays(), patched(*display, patch), display);
    const dm::DisplayLayers* const layers = world_.findLayers(call.first);
    if (!isError(answer) && layers != nullptr) *layers->display = patched(*layers->display, patch);
    return answer;
}

Response Control::removeDisplay(const Call& call) {
    const dm::Display* const display = world_.findDisplay(call.first);
    return display != nullptr ? removeFrom(world_.displays(), display) : unknown(call);
}

dm::Displayable* Control::findDisplayable(const std::string& idOrName) noexcept {
    for (dm::Displayable& displayable : world_.displayables()) {
        if (std::to_string(displayable.id) == idOrName || displayable.name.value_or("") == idOrName) return &displayable;
    }
    return nullptr;
}

Response Control::insertDisplayable(const Call& call) {
    return put(world_.displayables(), bodyAs<dm::Displayable>(call));
}

Response Control::changeDisplayable(const Call& call) {
    dm::Displayable* const displayable = findDisplayable(call.first);
    if (displayable == nullptr) return unknown(call);
    return put(world_.displayables(), patched(*displayable, bodyOf(call)), displayable);
}

Response Control::removeDisplayable(const Call& call) {
    const dm::Displayable* const displayable = findDisplayable(call.first);
    return displayable != nullptr ? removeFrom(world_.displayables(), displayable) : unknown(call);
}

Response Control::insertLayers(const Call& call) {
    return put(world_.layerConfig, dm::DisplayLayersArrayInner{bodyAs<dm::DisplayLayers>(call)});
}

Response Control::changeLayers(const Call& call) {
    dm::DisplayLayersArrayInner* const entry = world_.findLayerEntry(call.first);
    if (entry == nullptr) return unknown(call);
    return put(world_.layerConfig, dm::DisplayLayersArrayInner{patched(*entry->layersForDisplay, bodyOf(call))}, entry);
}

Response Control::removeLayers(const Call& call) {
    const dm::DisplayLayersArrayInner* const entry = world_.findLayerEntry(call.first);
    return entry != nullptr ? removeFrom(world_.layerConfig, entry) : unknown(call);
}

// --- Input displays ------------------------------------------------------------------------------------------------------------

Response Control::insertInputDisplay(const Call& call) {
    auto display = bodyAs<InputDisplay>(call);
    assignRegionIds(display);
    return put(world_.inputDisplays, std::move(display));
}

Response Control::changeInputDisplay(const Call& call) {
    InputDisplay* const display = world_.findInputDisplay(call.first);
    if (display == nullptr) return unknown(call);
    InputDisplay changed = patched(*display, bodyOf(call));
    assignRegionIds(changed);
    world_.surfaces.erase(call.first);
    return put(world_.inputDisplays, std::move(changed), display);
}

Response Control::removeInputDisplay(const Call& call) {
    const InputDisplay* const display = world_.findInputDisplay(call.first);
    world_.surfaces.erase(call.first);
    return display != nullptr ? removeFrom(world_.inputDisplays, display) : unknown(call);
}

// --- Popups --------------------------------------------------------------------------------------------------------------------

Response Control::insertPopup(const Call& call) {
    auto popup = bodyAs<Popup>(call);
    PopupDisplay* display = world_.findPopupDisplay(call.first);
    if (display == nullptr) display = &world_.popupDisplays.emplace_back(PopupDisplay{call.first, {}});
    world_.refusedPopups.erase(call.first);
    PopupState state;
    state.popup.name = popup.name;
    if (clashesInList(display->popups, state)) return taken();
    world_.setPopup(*display, display->popups.emplace_back(std::move(state)), std::move(popup), true, false);
    return done();
}

Response Control::changePopup(const Call& call) {
    PopupState* const state = world_.findPopup(call.first, call.second);
    if (state == nullptr) return unknown(call);
    PopupDisplay& display = *world_.findPopupDisplay(call.first);
    const Document patch = bodyOf(call);
    PopupState changed;
    changed.popup = patched(state->popup, patch);
    if (clashesInList(display.popups, changed, state)) return taken();
    const auto names = [&](std::string_view key) { return patch.root().find(key) != nullptr; };
    world_.setPopup(display, *state, std::move(changed.popup), names("requested"), names("visible"));
    return done();
}

// What a popup kept from showing may show once it is gone.
Response Control::removePopup(const Call& call) {
    const PopupState* const state = world_.findPopup(call.first, call.second);
    if (state == nullptr) return unknown(call);
    PopupDisplay& display = *world_.findPopupDisplay(call.first);
    const std::string slot = slotOf(state->popup);
    Response answer = removeFrom(display.popups, state);
    arbitrate(display.popups, slot);
    return answer;
}

}  // namespace hmxsim
