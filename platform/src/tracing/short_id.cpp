#include "tracing/short_id.h"

#include <cstddef>
#include <cstdint>

namespace tracing {

namespace {

constexpr std::string_view digits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

char capital(char character) noexcept {
    if (character >= 'a' && character <= 'z') return static_cast<char>(character - 'a' + 'A');
    return digits.find(character) == std::string_view::npos ? 'X' : character;
}

std::uint32_t fnv1a(std::string_view text) noexcept {
    std::uint32_t hash = 2'166'136'261U;
    for (const char character : text) hash = (hash ^ static_cast<unsigned char>(character)) * 16'777'619U;
    return hash;
}

}  // namespace

ShortId shortId(std::string_view name, unsigned attempt) noexcept {
    if (name.empty()) name = "X";
    const std::size_t beforeLast = name.rfind('_');
    char first = name.front();
    char second = name.size() > 1 ? name[1] : 'X';
    if (beforeLast != std::string_view::npos && beforeLast + 1 < name.size() && beforeLast > 0) {
        const std::size_t before = name.rfind('_', beforeLast - 1);
        first = name[before == std::string_view::npos ? 0 : before + 1];
        second = name[beforeLast + 1];
    }
    const std::size_t number = (fnv1a(name) + attempt) % (digits.size() * digits.size());
    return {capital(first), capital(second), digits[number / digits.size()], digits[number % digits.size()], '\0'};
}

}  // namespace tracing
