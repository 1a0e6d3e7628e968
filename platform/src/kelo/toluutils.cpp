#include "kelo/toluutils.h"

namespace kelo::toluutils {

url createElementUri(std::string_view serviceRoot, std::string_view resourcePath, const std::UUID& id) {
    char idText[std::UUID::textLength];
    id.toChars(idText);
    std::string text;
    text.reserve(serviceRoot.size() + resourcePath.size() + 1 + sizeof idText);
    text.append(serviceRoot).append(resourcePath).append(1, '/').append(idText, sizeof idText);
    return url{std::move(text)};
}

}  // namespace kelo::toluutils
