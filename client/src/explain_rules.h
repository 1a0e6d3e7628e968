// The text of client/rules/explain.json, which the build puts into the program.
#pragma once

#include <string_view>

namespace hmx::client {

extern const std::string_view explainRulesText;

}  // namespace hmx::client
