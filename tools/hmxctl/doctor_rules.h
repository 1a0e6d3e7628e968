// The text of rules/doctor.json, which the build puts into the program.
#pragma once

#include <string_view>

namespace hmxctl {

extern const std::string_view doctorRulesText;

}  // namespace hmxctl
