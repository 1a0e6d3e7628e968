// What is said of spoiled lines in more than one place.
#pragma once

namespace hmx::recording {

inline constexpr const char* cutLine = "incomplete, as the last line of a recorder that was killed may be";

}  // namespace hmx::recording
