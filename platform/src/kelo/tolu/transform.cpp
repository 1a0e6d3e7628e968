#include "kelo/tolu/transform.h"

#include <algorithm>

namespace kelo::tolu::detail {

bool isSelected(const std::vector<std::string>& fields, std::string_view key) noexcept {
    return std::find(fields.begin(), fields.end(), key) != fields.end();
}

}  // namespace kelo::tolu::detail
