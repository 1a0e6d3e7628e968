// The commands of the resource protocol.
#pragma once

#include <string_view>

namespace kelo::commands {

enum Id : int { retrieve = 0, update = 1, remove = 2, insert = 3, unknown = 4 };

// "retrieve", "update", "delete", "insert"; `unknown` for anything else. Thread: any.
[[nodiscard]] int toId(std::string_view command) noexcept;
// The reverse; "" for `unknown` and anything else.
[[nodiscard]] std::string_view toName(int id) noexcept;

}  // namespace kelo::commands
