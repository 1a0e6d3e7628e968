// Pages are cut after filtering, so `total`, positions and hints count matching elements. A limit below 1 counts as none, and an
// offset below 0 as 0: requests with such values are refused when they are read, so parameters with them can only come from
// inside the process.
#include "core/list_page.h"

#include <algorithm>

namespace kelo::tolu {

PageWindow placePage(const toluglobals::ToluParams& params, std::size_t total, std::size_t behind) {
    const auto count = [](const kelo::optional<int>& value) { return static_cast<std::size_t>(std::max(value.value_or(0), 0)); };
    PageWindow window;
    window.begin = params.offsetId ? behind : std::min(count(params.offset), total);
    window.end = total;
    if (const std::size_t limit = count(params.limit); limit > 0) {
        window.end = window.begin + std::min(limit, total - window.begin);
        window.totalPages = static_cast<int>((total + limit - 1) / limit);
        window.isCut = window.end - window.begin < total;
        window.previousBegin = window.begin - std::min(limit, window.begin);
    }
    return window;
}

}  // namespace kelo::tolu
