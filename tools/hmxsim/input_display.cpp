#include "input_display.h"

#include <algorithm>
#include <unordered_set>

namespace hmxsim {

using kelo::serializer::IStructuredPullDeserializer;
using kelo::serializer::IStructuredSerializer;

bool serialize(IStructuredSerializer& writer, const HmiRegions& value) {
    return kelo::record::write(writer, value);
}
bool deserialize(IStructuredPullDeserializer& reader, HmiRegions& value) {
    return kelo::record::read(reader, value);
}

bool serialize(IStructuredSerializer& writer, const InputDisplay& value) {
    return kelo::record::write(writer, value);
}
bool deserialize(IStructuredPullDeserializer& reader, InputDisplay& value) {
    return kelo::record::read(reader, value);
}

void assignRegionIds(InputDisplay& display) {
    if (!display.regions) return;
    const auto forEach = [&](auto visit) {
        for (HmiRegions& set : *display.regions) {
            for (auto& layer : set.infoForAllLayers) {
                if (layer.inputRegions) std::for_each(layer.inputRegions->begin(), layer.inputRegions->end(), visit);
            }
        }
    };
    std::unordered_set<int> taken;
    forEach([&](const auto& region) {
        if (region.regionID) taken.insert(*region.regionID);
    });
    int next = 1;
    forEach([&](auto& region) {
        if (region.regionID) return;
        while (!taken.insert(next).second) ++next;
        region.regionID = next;
    });
}

}  // namespace hmxsim
