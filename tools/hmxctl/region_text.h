// A touch region in a few words.
#pragma once

#include <string>

#include "failure.h"
#include "hmx/client/document.h"

namespace hmxctl {

// What a region is called, "HMI_ID_ANDROID_DRIVER #3", and where it is, "200x100 at 10,20".
[[nodiscard]] std::string regionName(const Json& region);
[[nodiscard]] std::string boundsText(const Json& region);

}  // namespace hmxctl
