// Name-based ids.
#pragma once

#include <string_view>

#include "kelo/std/uuid.h"

namespace kelo::uuid {

// The name-based id (RFC 9562 version 5) of `name` in the URL namespace, 6ba7b811-9dad-11d1-80b4-00c04fd430c8: the same name
// gives the same id on every machine and in every language. Thread: any. Errors: none.
void createFromName(std::string_view name, std::UUID& out) noexcept;
[[nodiscard]] std::UUID createFromName(std::string_view name) noexcept;

}  // namespace kelo::uuid
