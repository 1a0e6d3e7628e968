// The three managers that are simulated.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "hmx/displaymanager/service_path.h"
#include "hmx/inputregions/service_path.h"
#include "hmx/popups/service_path.h"

namespace hmxsim {

enum class ManagerId : std::uint8_t { display, input, popup };

inline constexpr std::array<ManagerId, 3> allManagers{ManagerId::display, ManagerId::input, ManagerId::popup};

// As the command line, world files and the control service call it.
constexpr std::string_view nameOf(ManagerId id) noexcept {
    constexpr std::array<std::string_view, allManagers.size()> names{"displaymanager", "inputmanager", "popupmanager"};
    return names[static_cast<std::size_t>(id)];
}

constexpr std::string_view servicePathOf(ManagerId id) noexcept {
    constexpr std::array<std::string_view, allManagers.size()> paths{
        kelo::hmx::displaymanager::servicePath, kelo::hmx::inputregions::servicePath, kelo::hmx::popups::servicePath};
    return paths[static_cast<std::size_t>(id)];
}

}  // namespace hmxsim
