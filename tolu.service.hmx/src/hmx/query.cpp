#include "hmx/query.h"

#include <cstdint>
#include <limits>

namespace hmx {

namespace {

using Numbers = std::numeric_limits<int>;

const std::int64_t* findNumber(const util::config::Dictionary& query) noexcept {
    const util::config::Value* const value = query.find(displayableParameter);
    return value == nullptr ? nullptr : value->asInt();
}

bool isBeyondAll(std::int64_t number) noexcept {
    return number < Numbers::min() || number > Numbers::max();
}

}  // namespace

const std::string* restriction(const util::config::Dictionary& query, std::string_view key) noexcept {
    const util::config::Value* const value = query.find(key);
    const std::string* const given = value == nullptr ? nullptr : value->asString();
    return given != nullptr && *given != "UNDEFINED" ? given : nullptr;
}

bool wantsDisplayable(const util::config::Dictionary& query, int& number) noexcept {
    const std::int64_t* const given = findNumber(query);
    if (given == nullptr || *given == Numbers::min() || isBeyondAll(*given)) return false;
    number = static_cast<int>(*given);
    return true;
}

bool wantsNoDisplayable(const util::config::Dictionary& query) noexcept {
    const std::int64_t* const given = findNumber(query);
    return given != nullptr && isBeyondAll(*given);
}

}  // namespace hmx
