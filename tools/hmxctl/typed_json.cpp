#include "typed_json.h"

#include <algorithm>

namespace hmxctl {

Json parseJson(std::string_view text, const std::string& origin) {
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& error) {
        const std::size_t end = std::min(text.size(), error.byte > 0 ? error.byte - 1 : 0);
        std::size_t line = 1;
        std::size_t column = 1;
        for (const char c : text.substr(0, end)) {
            column = c == '\n' ? 1 : column + 1;
            line += c == '\n' ? 1U : 0U;
        }
        std::string what = error.what();
        const std::size_t detail = what.find("syntax error");
        what = detail == std::string::npos ? what : what.substr(detail);
        throw usageError(origin + ":" + std::to_string(line) + ":" + std::to_string(column) + ": not JSON: " + what,
                         text.empty() ? "the text is empty" : "");
    }
}

}  // namespace hmxctl
