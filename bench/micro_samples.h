// The data of these benchmarks: any number of displays, and the page made from them.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "bridge/display_conversion.h"
#include "bridge/id_table.h"
#include "bridge/spare_elements.h"
#include "hmx/display_object.h"
#include "hmx/displaymanager/displays_info.h"

namespace samples {

inline kelo::hmx::displaymanager::DisplaysInfo displays(std::size_t count) {
    std::vector<kelo::hmx::displaymanager::Display> all(count);
    for (std::size_t i = 0; i < count; ++i) {
        const int number = static_cast<int>(i);
        auto& display = all[i];
        display.id = number + 1;
        display.internalid = number + 100;
        display.name = "Display_" + std::to_string(number);
        display.touchSupport = true;
        display.terminal = number;
        display.compositing = true;
        display.resolution.emplace();
        display.resolution->width = 1920;
        display.resolution->height = 720;
        display.updateRate = 60;
        display.connector = "DP-" + std::to_string(number + 1);
    }
    kelo::hmx::displaymanager::DisplaysInfo list;
    list.infoForAllDisplays = std::move(all);
    return list;
}

// Makes pages as a bridge does: ids are known from the second page on.
class PageMaker {
public:
    kelo::hmx::DisplayObjectListPage page(const kelo::hmx::displaymanager::DisplaysInfo& list) {
        auto objects = spare_.make([&](auto&& nextElement) {
            for (const auto& display : *list.infoForAllDisplays)
                hmx::convert(display, ids_.record(hmx::displayName(display)), nextElement());
        });
        return kelo::tolu::cutPage(std::move(objects), {});
    }
    void keep(kelo::hmx::DisplayObjectListPage&& page) noexcept { spare_.keep(std::move(page.data)); }

private:
    hmx::SpareElements<kelo::hmx::DisplayObject> spare_;
    hmx::IdTable<std::string> ids_{&hmx::displayIdName, &kelo::hmx::DisplayObject::elementUri};
};

}  // namespace samples
