#include "hmx/client/scene.h"

#include <algorithm>
#include <map>
#include <utility>

#include "hmx/client/elements.h"
#include "hmx/client/input_regions.h"
#include "hmx/client/layer_states.h"
#include "hmx/displaymanager/service_path.h"

namespace hmx::client {
namespace {

bool isNoted(const Scene& scene, const char* what) {
    return std::any_of(scene.absences.begin(), scene.absences.end(),
                       [=](const Scene::Absence& absence) { return absence.what == what; });
}

// The list, or nothing when the service is away, which is noted once. A manager need not know every display.
template <class T>
Task<std::optional<T>> unlessAway(Scene& scene, const char* what, Task<T> read) {
    if (isNoted(scene, what)) co_return std::nullopt;
    try {
        co_return co_await std::move(read);
    } catch (const Error& error) {
        if (error.isNotFound()) co_return T{};
        if (!error.isPassing()) throw;
        scene.absences.push_back({what, error});
    }
    co_return std::nullopt;
}

std::vector<Json> chosen(const std::vector<Json>& displays, const std::vector<std::string>& names) {
    if (names.empty()) return displays;
    std::vector<Json> found;
    for (const std::string& name : names) {
        std::copy_if(displays.begin(), displays.end(), std::back_inserter(found),
                     [&](const Json& display) { return text(display, "name") == name; });
    }
    return found;
}

Task<std::map<int, Json>> readDisplayables(Client& client, Deadline deadline) {
    const Service service = co_await client.service(std::string{kelo::hmx::displaymanager::servicePath}, deadline);
    const Answer answer = co_await service.request({"retrieve", "/displayables", nullptr}, deadline);
    std::map<int, Json> records;
    const Json document = decode(answer.payload);
    for (const Json& record : member(document, "infoForAllDisplayables")) {
        const Json& number = member(record, "id");
        if (number.is_number_integer()) records[number.get<int>()] = record;
    }
    co_return records;
}

}  // namespace

Task<Scene> readScene(Client& client, SceneParts parts, Deadline deadline) {
    Scene scene;
    Elements elements{client, deadline};
    const Resource& popups = resourceNamed("popups");
    const Resource& configurations = resourceNamed("layerconfigurations");
    const std::vector<Json> displays = co_await elements.list(resourceNamed("displays"), nullptr);
    const std::vector<Json> layers = co_await elements.list(configurations, nullptr);
    auto inactive = co_await unlessAway(scene, "inactive layers not told apart", readInactiveLayers(client, deadline));
    for (const Json& display : chosen(displays, parts.displays)) {
        const std::string name = text(display, "name");
        DisplayScene& each = scene.displays.emplace_back();
        each.display = display;
        for (const Json& configuration : layers) {
            if (configurations.idOf(name) == idOfElement(configuration)) each.layers = member(configuration, "layers");
        }
        if (inactive) markInactive(each.layers, (*inactive)[name]);
        if (parts.popups) {
            const Json ofDisplay{{"display", name}};
            each.popups = co_await unlessAway(scene, "popups left out", elements.list(popups, ofDisplay));
        }
        if (parts.regions) {
            each.regions = co_await unlessAway(scene, "touch regions left out", readInputRegions(client, name, deadline));
        }
    }
    if (parts.displayables) {
        scene.displayables = co_await elements.list(resourceNamed("displayables"), nullptr);
        auto records = co_await unlessAway(scene, "layers of displayables left out", readDisplayables(client, deadline));
        for (Json& displayable : scene.displayables) {
            const Json& number = member(displayable, "displayableID");
            if (!records || !number.is_number_integer()) continue;
            const auto record = records->find(number.get<int>());
            if (record != records->end()) displayable["upstream"] = record->second;
        }
    }
    co_return scene;
}

}  // namespace hmx::client
