#include "layer_states.h"

#include "hmx/displaymanager/service_path.h"

namespace hmxctl {

std::map<std::string, std::set<int>> readInactiveLayers(Context& context) {
    std::map<std::string, std::set<int>> inactive;
    try {
        const Service service = context.service(kelo::hmx::displaymanager::servicePath);
        const Answer answer = service.request({"retrieve", "/layerConfig", nullptr}, context.deadline);
        for (const Json& entry : decode(answer.payload)) {
            const Json& configuration = member(entry, "layersForDisplay");
            for (const Json& layer : member(member(configuration, "layers"), "infoForAllLayers")) {
                const Json& number = member(layer, "id");
                if (member(layer, "active") != false || !number.is_number_integer()) continue;
                inactive[text(member(configuration, "display"), "name")].insert(number.get<int>());
            }
        }
    } catch (const Failure& failure) {
        if (failure.code() != ExitCode::serviceAbsent && failure.code() != ExitCode::timeout) throw;
        context.note(std::string{"inactive layers not told apart: "} + failure.what());
    }
    return inactive;
}

void markInactive(Json& layers, const std::set<int>& numbers) {
    for (Json& layer : layers) {
        const Json& number = member(layer, "id");
        if (number.is_number_integer() && numbers.contains(number.get<int>())) layer["active"] = false;
    }
}

}  // namespace hmxctl
