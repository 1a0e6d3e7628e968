#include "kelo/toluutils.h"

namespace kelo::toluutils {

url createElementUri(std::string_view serviceRoot, std::string_view resourcePath, const std::UUID& id) {
    std::string text(serviceRoot.size() + resourcePath.size() + 1 + std::UUID::textLength, '/');
    char* at = text.data();
    at += serviceRoot.copy(at, serviceRoot.size());
    at += resourcePath.copy(at, resourcePath.size()) + 1;  // plus the slash, which is there already
    id.toChars(at);
    return url{std::move(text)};
}

}  // namespace kelo::toluutils
