#include "supervisor/environment.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace kelo::supervisor {

std::int64_t environmentNumber(const char* variable) noexcept {
    const char* const value = std::getenv(variable);
    const std::string_view text = value == nullptr ? "" : value;
    std::int64_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc{} && result.ptr == text.data() + text.size() && number >= 0 ? number : -1;
}

}  // namespace kelo::supervisor
