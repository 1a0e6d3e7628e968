// Helpers of the resource protocol.
#pragma once

#include <string_view>

#include "kelo/std/uuid.h"
#include "kelo/url.h"

namespace kelo::toluutils {

// serviceRoot + resourcePath + "/" + the id's text, e.g. "/hmx/displays/19243473-0126-5f4b-b1bf-4879152c72e5". Thread: any.
[[nodiscard]] url createElementUri(std::string_view serviceRoot, std::string_view resourcePath, const std::UUID& id);

}  // namespace kelo::toluutils
