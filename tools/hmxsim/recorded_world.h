// The world as a recording's managers described it.
#pragma once

#include <optional>
#include <string_view>

#include "hmx/recording/moment.h"
#include "managers.h"
#include "world.h"

namespace hmxsim {

// The manager that published this path; nothing for any other service.
[[nodiscard]] std::optional<ManagerId> managerAt(std::string_view servicePath) noexcept;

// Makes the world what the source has said last, word for word. Losses change nothing; sources that describe no part of the world
// are ignored. Errors: hmx::client::Error, unreadable, for a document that is none of the manager's.
void describe(World& world, const hmx::recording::SourceState& state);

}  // namespace hmxsim
