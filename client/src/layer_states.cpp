#include "hmx/client/layer_states.h"

#include "hmx/displaymanager/service_path.h"

namespace hmx::client {

Task<std::map<std::string, std::set<int>>> readInactiveLayers(Client& client, Deadline deadline) {
    const Service service = co_await client.service(std::string{kelo::hmx::displaymanager::servicePath}, deadline);
    const Answer answer = co_await service.request({"retrieve", "/layerConfig", nullptr}, deadline);
    std::map<std::string, std::set<int>> inactive;
    for (const Json& entry : decode(answer.payload)) {
        const Json& configuration = member(entry, "layersForDisplay");
        for (const Json& layer : member(member(configuration, "layers"), "infoForAllLayers")) {
            const Json& number = member(layer, "id");
            if (member(layer, "active") != false || !number.is_number_integer()) continue;
            inactive[text(member(configuration, "display"), "name")].insert(number.get<int>());
        }
    }
    co_return inactive;
}

void markInactive(Json& layers, const std::set<int>& numbers) {
    for (Json& layer : layers) {
        const Json& number = member(layer, "id");
        if (number.is_number_integer() && numbers.contains(number.get<int>())) layer["active"] = false;
    }
}

}  // namespace hmx::client
