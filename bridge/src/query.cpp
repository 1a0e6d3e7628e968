#include "bridge/query.h"

namespace hmx {

const std::string* restriction(const util::config::Dictionary& query, std::string_view key) noexcept {
    const util::config::Value* const value = query.find(key);
    const std::string* const given = value == nullptr ? nullptr : value->asString();
    return given != nullptr && *given != "UNDEFINED" ? given : nullptr;
}

}  // namespace hmx
